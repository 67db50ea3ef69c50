// The UDP and TCP probes of trace routes. Each has a socket of its own. Owned by EchoSockets, on
// its loop's thread; what it calls may delete it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

#include "platform/Echo.h"

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
  void Forget(std::int32_t number);
  void ForgetAll(const EchoReceiver& receiver);

 private:
  class Probe;

  void End(Probe& probe, const EchoOutcome& outcome);

  Notifier& notifier_;
  std::unordered_map<std::int32_t, std::unique_ptr<Probe>> probes_;
};

}  // namespace netro
