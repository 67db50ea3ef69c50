// The UDP and TCP probes of trace routes. Each has a socket of its own, whose error queue tells
// what routers say; that takes no permission. Owned by EchoSockets, on its loop's thread; what it
// calls may delete it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "platform/Echo.h"
#include "platform/linux/MessageBatch.h"

namespace netro {

class PortProbes {
 public:
  explicit PortProbes(Notifier& notifier);
  ~PortProbes();
  PortProbes(const PortProbes&) = delete;
  PortProbes& operator=(const PortProbes&) = delete;

  /// Sends one that `number` names. Returns a status.
  std::int32_t Send(const EchoRequest& request, const std::shared_ptr<EchoReceiver>& receiver,
                    std::int32_t number);
  /// True when an answer has come and is not handed out yet.
  bool HasAnswer(std::int32_t number) const;
  void Forget(std::int32_t number);
  void ForgetAll(const EchoReceiver& receiver);

 private:
  class Probe;

  std::optional<EchoOutcome> Read(const Probe& probe, SocketEvent event, std::int32_t error);
  std::optional<EchoOutcome> ReadError(const Probe& probe);
  void Look(Probe& probe, SocketEvent event, std::int32_t error);

  Notifier& notifier_;
  MessageBatch batch_;
  std::unordered_map<std::int32_t, std::unique_ptr<Probe>> probes_;
};

}  // namespace netro
