// ICMP echo requests (RFC 792, RFC 4443): any number of them in flight through one socket for each
// family of addresses, an unprivileged datagram socket where the system grants one, else a raw
// socket; and the UDP and TCP probes of trace routes, each through a socket of its own, which take
// no permission. Lives on its loop's thread; the owner waits in the loop and decides how long.
#pragma once

#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/IcmpPacket.h"
#include "platform/Notifier.h"

namespace netro {

enum class EchoSocket : std::int32_t { None = 0, Datagram = 1, Raw = 2 };

enum class ProbeKind : std::int32_t { Echo = 0, Udp = 1, Tcp = 2 };

struct EchoRequest {
  IpAddress ip;
  std::int32_t ttl = 0;    // or hop limit; 0: the system's
  std::int32_t size = 32;  // bytes of data; a negative number counts as 0
  ProbeKind kind = ProbeKind::Echo;
  std::int32_t port = 0;  // of UDP and TCP
};

/// The port to ask: the one that is wanted, or for 0 the usual one of this kind, which is that of
/// trace routes for UDP and that of web servers for TCP.
constexpr std::int32_t ProbePort(ProbeKind kind, std::int32_t wanted) {
  if (wanted != 0) return wanted;
  return kind == ProbeKind::Tcp ? 80 : 33'434;
}

struct EchoOutcome {
  std::int32_t status = kIpSuccess;  // an IpStatus
  IpAddress from{};                  // who answered; none: nobody
  std::chrono::nanoseconds roundTrip{0};
  std::int32_t ttl = 0;        // of the answer as it arrived
  std::int32_t icmpType = -1;  // of the message that ended it; -1: none did
  std::int32_t icmpCode = -1;
  std::vector<MplsLabel> labels{};  // that a router tells
  bool duplicate = false;           // the request has been answered before
};

/// Who sends through the sockets of a loop, and is told of the outcomes.
struct EchoReceiver {
  std::function<void(std::int32_t number, const EchoOutcome& outcome)> answered;
  bool awaited = false;  // a blocking call waits for the outcomes
  bool wantsDuplicates = false;
  bool alive = true;
  std::size_t inFlight = 0;
};

class Echo;

/// The sockets of a loop that echoes go through: one for each family, whoever sends, since each raw
/// socket hears the answers to all of them. They are there while there is an Echo that has opened
/// them; a second pair is opened when the first has no sequence number free.
class EchoSockets {
 public:
  explicit EchoSockets(Notifier& notifier);
  ~EchoSockets();
  EchoSockets(const EchoSockets&) = delete;
  EchoSockets& operator=(const EchoSockets&) = delete;

 private:
  friend Echo;

  struct State;  // how this system sends echoes
  const std::unique_ptr<State> state_;
};

/// The requests of one object, or of one blocking call.
class Echo {
 public:
  /// Is called from the loop, once at most for each request. May do anything inside, deleting the
  /// Echo included.
  using Answered = decltype(EchoReceiver::answered);

  Echo(EchoSockets& sockets, Answered answered);
  ~Echo();
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  /// Makes sure that there is a socket for requests like this one. Returns the error number; 10013
  /// when the system allows this program no echo.
  std::int32_t Open(const EchoRequest& request);
  /// Of the socket that was opened last.
  EchoSocket Kind() const { return kind_; }
  /// Replies are handed out however deeply the pumps are nested: a blocking call waits for them.
  void SetAwaited() { receiver_->awaited = true; }
  /// More replies to a request are told too, until it is forgotten.
  void SetWantsDuplicates(bool wanted) { receiver_->wantsDuplicates = wanted; }

  /// So many are under way that no more can be sent.
  bool IsFull() const;
  /// Sends one request, or keeps it until the system's buffer has room. 0: it is under way; else
  /// the status that says why not. `number` names it; 0 when there are too many. A system that
  /// keeps requests itself need not do so for longer than `wanted`; whoever waits notices the time.
  std::int32_t Send(const EchoRequest& request, std::chrono::milliseconds wanted,
                    std::int32_t& number);
  /// True while a request is kept because the system's buffer is full, or the system has no memory
  /// to tell of answers.
  bool LacksMemory(std::int32_t number) const;
  /// Takes what has come by now; the loop hands it out.
  void Collect();
  /// True when an answer has come and is not handed out yet.
  bool HasAnswer(std::int32_t number) const;
  /// The request's answer is not wanted any more.
  void Forget(std::int32_t number);

 private:
  void Use();

  EchoSockets::State& sockets_;
  const std::shared_ptr<EchoReceiver> receiver_;
  EchoSocket kind_ = EchoSocket::None;
  bool uses_ = false;
};

/// The status that stands for a refusal to send, by its error number.
std::int32_t EchoSendStatus(std::int32_t error);

}  // namespace netro
