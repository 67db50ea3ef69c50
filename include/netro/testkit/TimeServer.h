// A time server on UDP of a free port of 127.0.0.1, and on TCP of the same: SNTP (RFC 4330) for
// requests of 48 bytes, else the time protocol (RFC 868). Its time is the system's and what the
// test adds to it. It records the requests over UDP.
//
// Thread: the test's. Example:
//
//   TimeServer server(std::chrono::hours(1));  // an hour ahead
#pragma once

#include <netro/Export.h>
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/LoopbackServer.h>
#include <netro/testkit/TimeReply.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace netro::testkit {

/// A time server: SNTP (RFC 4330) by datagram, the time protocol (RFC 868) over TCP and by empty
/// datagrams.
class NETRO_EXPORT TimeServer {
 public:
  /// Makes of the reply of SNTP another one: unset, of a bad stratum, a kiss code, silent (empty).
  /// With it, all replies by datagram are SNTP, also to the empty requests that QueryTimeCLS sends
  /// to other ports than 123.
  using Change = std::function<std::string(TimeReply reply)>;

  /// Its clock is `ahead` of this computer's.
  explicit TimeServer(std::chrono::milliseconds ahead = {}, Change change = nullptr);

  /// Of TCP and UDP on 127.0.0.1.
  int Port() const { return tcp_->Port(); }
  /// Of TCP, accepted so far.
  std::size_t Connections() const { return tcp_->Connections(); }
  /// The datagrams so far.
  std::vector<std::string> Requests() { return udp_->Received(); }

 private:
  std::string ReplyTo(const std::string& request) const;

  const std::chrono::milliseconds ahead_;
  const Change change_;
  // Last: their threads use the others.
  std::unique_ptr<DatagramServer> udp_;
  std::unique_ptr<LoopbackServer> tcp_;
};

}  // namespace netro::testkit
