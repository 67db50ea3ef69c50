// One socket of each family for echo requests, and the 65,536 of them that their sequence numbers
// keep apart. Owned by EchoSockets, on its loop's thread; what it calls may close it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>

#include "platform/Echo.h"
#include "platform/linux/IcmpSocket.h"
#include "platform/linux/MessageBatch.h"

namespace netro {

class EchoLine final : public std::enable_shared_from_this<EchoLine>, private SocketWatcher {
 public:
  explicit EchoLine(Notifier& notifier);
  EchoLine(const EchoLine&) = delete;
  EchoLine& operator=(const EchoLine&) = delete;

  /// Opens the socket of this family, once. Returns the error number.
  std::int32_t Open(AddressFamily family);
  void Close();
  EchoSocket KindOf(AddressFamily family) const;

  bool IsFull() const;
  /// `number` is chosen as the next free one after `lastNumber`. Returns a status.
  std::int32_t Send(const EchoRequest& request, const std::shared_ptr<EchoReceiver>& receiver,
                    std::int32_t& lastNumber, std::int32_t& number);
  bool Knows(std::int32_t number) { return Find(number) != nullptr; }
  bool LacksMemory(std::int32_t number);
  bool HasAnswer(std::int32_t number);
  void Forget(std::int32_t number);
  void ForgetAll(const EchoReceiver& receiver);
  void Collect();

 private:
  using SystemTime = std::chrono::system_clock::time_point;

  // One in flight, by its sequence number, which is the low half of its number.
  struct Flight {
    std::int32_t number = 0;
    EchoRequest request;
    std::shared_ptr<EchoReceiver> receiver;
    SendTime sent;
    bool waits = false;     // for room in the system's buffer
    bool answered = false;  // its arrival waits to be handed out, or has been
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
  Port& PortOf(AddressFamily family) { return ports_[family == AddressFamily::IPv6 ? 1 : 0]; }
  Flight* Find(std::int32_t number);
  std::int32_t ChooseNumber(std::int32_t last) const;
  std::int32_t Transmit(IcmpSocket& socket, Flight& flight);
  void SendWaiting(Port& port);
  void Collect(Port& port);
  bool ReadAll(Port& port);
  void Take(const IcmpSocket& socket, const IcmpAnswer& answer, SystemTime arrived);
  bool Matches(const IcmpSocket& socket, const Flight& flight, const IcmpAnswer& answer) const;
  bool TakeNext(bool awaitedOnly, Arrival& arrival, std::shared_ptr<EchoReceiver>& receiver);
  void Deliver();
  void DeliverLater();

  Notifier& notifier_;
  std::int32_t handle_ = 0;  // of the first socket, whose notification hands arrivals out
  const std::uint16_t identifier_;
  const std::uint64_t secret_;  // in the data, so that nobody else's reply passes for ours
  std::unordered_map<std::uint16_t, Flight> flights_;
  std::deque<Arrival> arrivals_;  // read, and not yet handed out
  MessageBatch batch_;
  std::array<Port, 2> ports_;
};

}  // namespace netro
