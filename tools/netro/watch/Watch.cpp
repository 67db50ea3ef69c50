// "netro watch": observes hosts with WatchpostCls.

#include "watch/Watch.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "terminal/FailureText.h"
#include "terminal/Interrupt.h"
#include "terminal/Terminal.h"
#include "watch/WatchExample.h"
#include "watch/WatchJson.h"
#include "watch/WatchLines.h"
#include "watch/WatchOptions.h"
#include "watch/WatchPageFile.h"
#include "watch/WatchTable.h"
#include "watch/Watcher.h"

namespace netro::tool {
namespace {

std::unique_ptr<WatchListener> OutputFor(const WatchOptions& options) {
  if (options.json) return std::make_unique<WatchJson>();
  if (options.once || options.verbose || !IsDecorated(Stream::Output)) {
    return std::make_unique<WatchLines>();
  }
  return std::make_unique<WatchTable>();
}

class Watch final : private WatchListener {
 public:
  explicit Watch(const WatchOptions& options)
      : options_(options), output_(OutputFor(options)), watcher_(options, *this) {
    if (!options.html.empty()) page_.emplace(options.html);
  }

  int Run() {
    if (!watcher_.Start()) return TellWhyNot();
    const std::string problem = page_ ? page_->Write(watcher_) : "";
    if (!problem.empty()) {
      constexpr std::int32_t kPageFailed = -1;
      watcher_.Refuse(kPageFailed, problem);
      return Fail(problem);
    }
    watcher_.Run();
    watcher_.End();
    TellPage(page_ ? page_->Write(watcher_) : "");
    TellResult();
    if (!options_.once) AcceptTermination();
    return !options_.once || (watcher_.AllAnswer() && !watcher_.IsInterrupted()) ? Success
                                                                                 : QueryFailed;
  }

 private:
  int TellWhyNot() const {
    const std::int32_t error = watcher_.ErrorNumber();
    const std::string text = FailureText("cannot observe the hosts of " + options_.settings, error,
                                         watcher_.ErrorText());
    // See docs/watch.md: of the settings are 1 to 3, and hosts that cannot be.
    const bool isOfSettings = (error >= 1 && error <= 3) || error == 17;
    if (!isOfSettings) return Fail(text);
    ShowMessage(text);
    return WrongUsage;
  }

  int Fail(const std::string& text) const {
    ShowMessage(text);
    if (options_.json) PrintWatchJson(watcher_);
    return QueryFailed;
  }

  void TellResult() const {
    if (options_.json) {
      PrintWatchJson(watcher_);
    } else if (options_.once) {
      Print(std::to_string(watcher_.AnsweringHosts()) + " of " +
            std::to_string(watcher_.Post().HostCount()) + " hosts have answered\n");
    }
  }

  void TellPage(const std::string& problem) {
    if (problem != pageProblem_ && !problem.empty()) Problem(problem);
    pageProblem_ = problem;
  }

  void Probed(const Watcher& watcher, const WatchedHost& host, bool isFirstAnswer) override {
    output_->Probed(watcher, host, isFirstAnswer);
  }

  void Changed(const Watcher& watcher, const WatchNews& news) override {
    output_->Changed(watcher, news);
  }

  void Tick(const Watcher& watcher) override {
    if (page_) TellPage(page_->Update(watcher));
    output_->Tick(watcher);
  }

  void Problem(const std::string& text) override { output_->Problem(text); }

  const WatchOptions& options_;
  const std::unique_ptr<WatchListener> output_;
  std::optional<WatchPageFile> page_;
  std::string pageProblem_;
  Watcher watcher_;
};

int RunWatch(const WatchOptions& options) {
  CheckWatchOptions(options);
  if (options.example) {
    Print(kWatchExample);
    return Success;
  }
  return Watch(options).Run();
}

}  // namespace

CommandRun SetUpWatch(CLI::App& options) {
  const auto values = std::make_shared<WatchOptions>();
  DeclareWatchOptions(options, *values);
  return [values] { return RunWatch(*values); };
}

}  // namespace netro::tool
