// ICMP echo requests (RFC 792): any number of them in flight through one socket, an unprivileged
// datagram socket where the system grants one, else a raw socket. Lives on its loop's thread; the
// owner waits in the loop and decides how long.
#pragma once

#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>

#include "platform/Notifier.h"
#include "support/IcmpPacket.h"

namespace netro {

class MessageBatch;

enum class EchoSocket : std::int32_t { None = 0, Datagram = 1, Raw = 2 };

struct EchoRequest {
  std::int32_t ip = 0;
  std::int32_t ttl = 0;    // 0: the system's
  std::int32_t size = 32;  // bytes of data; a negative number counts as 0
};

struct EchoOutcome {
  std::int32_t status = kIpSuccess;  // an IpStatus
  std::int32_t from = 0;             // who answered; 0: nobody
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

  /// Returns the error number; 10013 when the system allows this program no echo. Once it is open,
  /// it does nothing.
  std::int32_t Open();
  EchoSocket Kind() const { return kind_; }
  /// Replies are handed out however deeply the pumps are nested: a blocking call waits for them.
  void SetAwaited() { notifier_.SetAwaited(handle_); }

  /// Sends one request, or keeps it until the system's buffer has room. 0: it is under way; else
  /// the status that says why not. `number` names it; 0 when there are too many.
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
  struct Heard {
    IcmpAnswer answer;
    std::chrono::system_clock::time_point arrived;
  };
  struct Arrival {
    std::int32_t number = 0;
    EchoOutcome outcome;
  };

  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;
  Flight* Find(std::int32_t number);
  bool ChooseNumber();
  std::int32_t SetTtl(std::int32_t ttl);
  std::int32_t Transmit(Flight& flight);
  void SendWaiting();
  bool ReadAll();
  bool ReadQueue(bool errors, const std::function<void(const Heard&)>& take);
  void Take(const Heard& heard);
  bool Matches(const Flight& flight, const IcmpAnswer& answer) const;
  void Deliver();
  void DeliverLater();

  Notifier& notifier_;
  const Answered answered_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  EchoSocket kind_ = EchoSocket::None;
  std::int32_t handle_ = 0;
  std::uint16_t identifier_ = 0;
  std::uint64_t secret_ = 0;  // in the data, so that nobody else's reply passes for ours
  std::int32_t lastNumber_ = 0;
  std::int32_t ttl_ = 0;  // that the socket is set to
  int unread_ = 0;        // requests since the last reading
  bool stamps_ = false;   // the system stamps what arrives
  std::unordered_map<std::uint16_t, Flight> flights_;
  std::deque<std::int32_t> waiting_;  // numbers that the system had no room for
  std::deque<Arrival> arrivals_;      // read, and not yet handed out
  std::unique_ptr<MessageBatch> batch_;
};

/// The status that stands for a refusal to send, by its error number.
std::int32_t EchoSendStatus(std::int32_t error);

}  // namespace netro
