// Echo requests through the system's own calls, any number of them under way. Owned by EchoSockets,
// on its loop's thread; what it calls may delete it.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>

#include "platform/Echo.h"

namespace netro {

class EchoCall;
class EchoInbox;
class IcmpHandle;

class EchoCalls final : public std::enable_shared_from_this<EchoCalls>, private SocketWatcher {
 public:
  explicit EchoCalls(Notifier& notifier);
  ~EchoCalls();
  EchoCalls(const EchoCalls&) = delete;
  EchoCalls& operator=(const EchoCalls&) = delete;

  /// Makes sure that requests to this family can be sent. Returns the error number.
  std::int32_t Open(AddressFamily family);
  void Close();

  /// Sends one that `number` names. Returns a status.
  std::int32_t Send(const EchoRequest& request, std::chrono::milliseconds wanted,
                    const std::shared_ptr<EchoReceiver>& receiver, std::int32_t number);
  bool Knows(std::int32_t number) const { return flights_.contains(number); }
  bool HasAnswer(std::int32_t number) const;
  void Forget(std::int32_t number);
  void ForgetAll(const EchoReceiver& receiver);
  /// Takes what has come by now, for the loop to hand out.
  void Collect();

 private:
  struct Flight {
    std::shared_ptr<EchoReceiver> receiver;
    std::shared_ptr<EchoCall> call;
    bool answered = false;
  };
  struct Arrival {
    std::int32_t number = 0;
    EchoOutcome outcome;
  };

  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;
  std::int32_t OpenBell();
  std::shared_ptr<IcmpHandle>& HandleOf(AddressFamily family);
  void TakeInbox();
  bool TakeNext(bool awaitedOnly, Arrival& arrival, std::shared_ptr<EchoReceiver>& receiver);
  void Deliver();

  Notifier& notifier_;
  std::int32_t bell_ = 0;  // a socket that only notifies
  std::shared_ptr<EchoInbox> inbox_;
  std::shared_ptr<IcmpHandle> v4_;
  std::shared_ptr<IcmpHandle> v6_;
  std::unordered_map<std::int32_t, Flight> flights_;
  std::deque<Arrival> arrivals_;  // taken, and not yet handed out
};

}  // namespace netro
