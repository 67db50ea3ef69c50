// ICMP echo requests (RFC 792, RFC 4443): any number of them in flight through one socket for each
// family of addresses, an unprivileged datagram socket where the system grants one, else a raw
// socket. Lives on its loop's thread; the owner waits in the loop and decides how long.
#pragma once

#include <netro/Types.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>

#include "platform/IcmpPacket.h"
#include "platform/Notifier.h"

namespace netro {

class IcmpSocket;
class MessageBatch;

enum class EchoSocket : std::int32_t { None = 0, Datagram = 1, Raw = 2 };

struct EchoRequest {
  IpAddress ip;
  std::int32_t ttl = 0;    // or hop limit; 0: the system's
  std::int32_t size = 32;  // bytes of data; a negative number counts as 0
};

struct EchoOutcome {
  std::int32_t status = kIpSuccess;  // an IpStatus
  IpAddress from;                    // who answered; none: nobody
  std::chrono::nanoseconds roundTrip{0};
  std::int32_t ttl = 0;  // of the answer as it arrived
};

class Echo final : private SocketWatcher {
 public:
  /// Is called from the loop, once at most for each request. May do anything inside, deleting the
  /// Echo included.
  using Answered = std::function<void(std::int32_t number, const EchoOutcome& outcome)>;

  Echo(Notifier& notifier, Answered answered);
  ~Echo();
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;

  /// Opens the socket for addresses like this one. Returns the error number; 10013 when the system
  /// allows this program no echo. Once it is open, it does nothing.
  std::int32_t Open(const IpAddress& ip);
  /// Of the socket that was opened last.
  EchoSocket Kind() const { return kind_; }
  /// Replies are handed out however deeply the pumps are nested: a blocking call waits for them.
  void SetAwaited() { awaited_ = true; }

  /// Sends one request through the open socket of its family, or keeps it until the system's buffer
  /// has room. 0: it is under way; else the status that says why not. `number` names it; 0 when
  /// there are too many.
  std::int32_t Send(const EchoRequest& request, std::int32_t& number);
  /// True while a request is kept because the system's buffer is full.
  bool Waits(std::int32_t number);
  /// Takes what has come by now; the loop hands it out.
  void Collect();
  /// True when an answer has come and is not handed out yet.
  bool HasAnswer(std::int32_t number);
  /// The request's answer is not wanted any more.
  void Forget(std::int32_t number);

 private:
  // One in flight, by its sequence number, which is the low half of its number.
  struct Flight {
    std::int32_t number = 0;
    EchoRequest request;
    std::chrono::steady_clock::time_point sent;
    std::chrono::system_clock::time_point wallSent;  // what the system stamps arrivals with
    bool waits = false;                              // for room in the system's buffer
    bool answered = false;                           // its arrival waits to be handed out
  };
  // The socket of one family.
  struct Port {
    std::unique_ptr<IcmpSocket> socket;  // null until it is needed
    std::deque<std::int32_t> waiting;    // numbers that the system had no room for
    int unread = 0;                      // requests since the last reading
  };
  struct Arrival {
    std::int32_t number = 0;
    EchoOutcome outcome;
  };

  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;
  Port& PortOf(const IpAddress& ip) { return ports_[ip.IsIPv6() ? 1 : 0]; }
  Flight* Find(std::int32_t number);
  bool ChooseNumber();
  std::int32_t Transmit(IcmpSocket& socket, Flight& flight);
  void SendWaiting(Port& port);
  void Collect(Port& port);
  bool ReadAll(Port& port);
  void Take(const IcmpSocket& socket, const IcmpAnswer& answer,
            std::chrono::system_clock::time_point arrived);
  bool Matches(const IcmpSocket& socket, const Flight& flight, const IcmpAnswer& answer) const;
  void Deliver();
  void DeliverLater();

  Notifier& notifier_;
  const Answered answered_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  EchoSocket kind_ = EchoSocket::None;
  bool awaited_ = false;
  std::int32_t handle_ = 0;  // of the first socket, whose notification hands arrivals out
  std::uint16_t identifier_ = 0;
  std::uint64_t secret_ = 0;  // in the data, so that nobody else's reply passes for ours
  std::int32_t lastNumber_ = 0;
  std::unordered_map<std::uint16_t, Flight> flights_;
  std::deque<Arrival> arrivals_;  // read, and not yet handed out
  std::unique_ptr<MessageBatch> batch_;
  std::array<Port, 2> ports_;
};

/// The status that stands for a refusal to send, by its error number.
std::int32_t EchoSendStatus(std::int32_t error);

}  // namespace netro
