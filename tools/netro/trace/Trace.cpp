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
#include "terminal/Timer.h"
#include "trace/LiveTable.h"
#include "trace/LiveTrace.h"
#include "trace/TraceNames.h"
#include "trace/TraceOptions.h"
#include "trace/TraceOutput.h"
#include "trace/TraceProbes.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kCancelled = 9999;
constexpr std::int32_t kReportCycles = 10;
constexpr std::int32_t kRedrawMilliseconds = 250;

class Trace {
 public:
  explicit Trace(const TraceOptions& options) : options_(options), names_(options.dns) {}

  int Run() {
    const Stopwatch watch;
    const bool isLive = options_.live || options_.report;
    {
      const InterruptGuard guard(loop_);
      if (FindAddress()) isLive ? Watch() : FindHops();
    }
    end_.seconds = watch.Seconds();
    if (options_.json && isLive) PrintLiveJson(options_, end_, live_ ? &*live_ : nullptr, names_);
    if (options_.json && !isLive) {
      PrintTraceJson(options_, end_, probes_ ? &*probes_ : nullptr, names_);
    }
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

  /// Until Ctrl-C, which is how --live ends, or the last cycle.
  void Watch() {
    live_.emplace(end_.address, options_, [this](const std::string& host) {
      if (!options_.numeric) names_.Ask(host);
    });
    LiveTable table(options_, end_.address);
    const Timer redraw(kRedrawMilliseconds, [&] {
      if (table.Draw(*live_, names_)) return;
      outputLost_ = true;
      loop_.StopWaiting();
    });
    loop_.RunUntil([this] { return live_->IsDone() && HaveNames(); });
    const bool wasAsked = live_->Cycles() > 0 && live_->Error() != kEchoForbidden;
    if (!options_.json && wasAsked && !outputLost_) table.Finish(*live_, names_);
    const bool isCut = loop_.IsStopped() && options_.cycles != 0 && !live_->IsDone();
    end_.error = isCut ? kCancelled : live_->Error();
    end_.errorText = end_.error == 0 ? "" : EchoStatusText(std::abs(end_.error));
  }

  bool HaveNames() const {
    for (std::size_t i = 0; i < live_->ShownHops(); ++i) {
      for (const LiveHop::Router& router : live_->Hop(i).routers) {
        if (!names_.IsSettled(router.address)) return false;
      }
    }
    return true;
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
  std::optional<LiveTrace> live_;  // instead, with --live and --report
  TraceEnd end_;
  std::size_t shown_ = 0;
  bool outputLost_ = false;
};

int RunTrace(TraceOptions options) {
  CheckTraceOptions(options);
  if (options.report && options.cycles == 0) options.cycles = kReportCycles;
  return Trace(options).Run();
}

}  // namespace

CommandRun SetUpTrace(CLI::App& options) {
  const auto values = std::make_shared<TraceOptions>();
  DeclareTraceOptions(options, *values);
  return [values] { return RunTrace(*values); };
}

}  // namespace netro::tool
