// The time server of the tour: the time protocol (RFC 868) over UDP and TCP, and the replies of
// SNTP (RFC 4330), all on free ports. Its clock is one hour fast. Thread: the loop's.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "terminal/Timer.h"
#include "tour/TourJournal.h"
#include "tour/TourServers.h"

namespace netro::tool {

/// What the time server's clock shows more than this system's, in seconds.
inline constexpr std::int32_t kTourClockIsFast = 3600;

/// What the time server answers; `meaning` explains it.
struct TourTimeReply {
  std::string bytes;
  std::string meaning;
};

/// The replies: 4 bytes, the 48 bytes of SNTP, those with a kiss code instead of a time.
TourTimeReply TimeProtocolReply();
TourTimeReply SntpReply();
TourTimeReply KissOfDeathReply();

class TourTimeServer {
 public:
  explicit TourTimeServer(TourJournal& journal);
  ~TourTimeServer();
  TourTimeServer(const TourTimeServer&) = delete;
  TourTimeServer& operator=(const TourTimeServer&) = delete;

  std::int32_t UdpPort() const { return udpPort_; }
  /// Of the time protocol.
  std::int32_t TcpPort() const { return tcp_.Port(); }
  /// From now on this answers a datagram.
  void AnswerWith(TourTimeReply (*reply)()) { reply_ = reply; }

 private:
  void ReceiveDatagrams();

  TourJournal& journal_;
  TourTimeReply (*reply_)() = TimeProtocolReply;
  TourServer tcp_;
  int descriptor_ = -1;
  std::int32_t udpPort_ = 0;
  const Timer poll_;
};

}  // namespace netro::tool
