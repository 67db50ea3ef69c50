// "netro trace": the routers on the way to a host, with EchoCls.

#include "trace/Trace.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "terminal/EchoText.h"
#include "terminal/HostAddress.h"
#include "terminal/Interrupt.h"
#include "terminal/StoppableLoop.h"
#include "terminal/Stopwatch.h"
#include "trace/TraceNames.h"
#include "trace/TraceOptions.h"
#include "trace/TraceOutput.h"
#include "trace/TraceProbes.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kCancelled = 9999;

class Trace {
 public:
  explicit Trace(const TraceOptions& options) : options_(options), names_(options.dns) {}

  int Run() {
    const Stopwatch watch;
    {
      const InterruptGuard guard(loop_);
      if (FindAddress()) FindHops();
    }
    end_.seconds = watch.Seconds();
    if (options_.json) PrintTraceJson(options_, end_, probes_ ? &*probes_ : nullptr, names_);
    if (!outputLost_) ExplainTrace(options_, end_);
    return end_.error == 0 ? Success : QueryFailed;
  }

 private:
  bool FindAddress() {
    loop_.Names().DNSURL(options_.dns);
    loop_.Names().AddressPreference(options_.preference);
    const HostAddress found = tool::FindAddress(loop_.Names(), options_.host);
    end_ = {found.address, found.error, found.errorText, 0};
    return found.error == 0;
  }

  void FindHops() {
    probes_.emplace(end_.address, options_, [this](const std::string& host) {
      if (!options_.numeric) names_.Ask(host);
    });
    if (!options_.json && !probes_->IsDone()) PrintTraceHead(options_, end_.address);
    loop_.RunUntil([this] { return ShowHops() && probes_->IsDone(); });
    end_.error = probes_->IsDone() ? probes_->Error() : kCancelled;
    end_.errorText = end_.error == 0 ? "" : EchoStatusText(std::abs(end_.error));
  }

  /// Prints the hops that are known and have their names. True when no known ones are left.
  bool ShowHops() {
    for (; shown_ < probes_->KnownHops() && HasNames(probes_->Hop(shown_)); ++shown_) {
      if (!options_.json &&
          !PrintTraceHop(shown_ + 1, probes_->Hop(shown_), names_, end_.address)) {
        outputLost_ = true;
        loop_.StopWaiting();
        return false;
      }
    }
    return shown_ == probes_->KnownHops();
  }

  bool HasNames(const TraceHop& hop) const {
    for (const std::string& host : HostsOf(hop)) {
      if (!names_.IsSettled(host)) return false;
    }
    return true;
  }

  const TraceOptions& options_;
  StoppableLoop loop_;
  TraceNames names_;
  std::optional<TraceProbes> probes_;
  TraceEnd end_;
  std::size_t shown_ = 0;
  bool outputLost_ = false;
};

int RunTrace(const TraceOptions& options) {
  CheckTraceOptions(options);
  return Trace(options).Run();
}

}  // namespace

CommandRun SetUpTrace(CLI::App& options) {
  const auto values = std::make_shared<TraceOptions>();
  DeclareTraceOptions(options, *values);
  return [values] { return RunTrace(*values); };
}

}  // namespace netro::tool
