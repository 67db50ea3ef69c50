// The work of "netro watch": an observation, its changes, and its end in good order. Thread: the
// loop's.
#pragma once

#include <netro/WatchpostCls.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>

#include "terminal/Interrupt.h"
#include "terminal/StoppableLoop.h"
#include "terminal/Terminal.h"
#include "watch/ReloadSignal.h"
#include "watch/WatchOptions.h"
#include "watch/WatchOverview.h"

namespace netro::tool {

class Watcher;

/// What is reported of a host, with the host as it was then.
struct WatchNews {
  Date time = 0;
  WatchedChangeEnum change = WatchedWentDown;
  WatchedHost host;
};

/// Hears what happens.
class WatchListener {
 public:
  virtual ~WatchListener() = default;
  /// A host has been probed; `isFirstAnswer`: it has never answered before.
  virtual void Probed(const Watcher& watcher, const WatchedHost& host, bool isFirstAnswer) {
    (void)watcher, (void)host, (void)isFirstAnswer;
  }
  virtual void Changed(const Watcher& watcher, const WatchNews& news) { (void)watcher, (void)news; }
  /// Comes each second, and when a round or all has ended.
  virtual void Tick(const Watcher& watcher) { (void)watcher; }
  /// Something beside the probes has gone wrong: a mail, a program, the log.
  virtual void Problem(const std::string& text) { ShowMessage(text); }
};

class Watcher final : private WatchpostClsEvents {
 public:
  static constexpr std::size_t kMostChanges = 500;

  Watcher(const WatchOptions& options, WatchListener& listener);

  /// False with ErrorNumber and ErrorText when the observation cannot begin.
  bool Start();
  /// Notes why the observation does not begin, for ErrorNumber and ErrorText.
  void Refuse(std::int32_t number, const std::string& text);
  /// Returns at Ctrl-C, when the output is lost, or with --once when each host has been probed.
  void Run();
  /// Waits until each report has been tried, or for another Ctrl-C, and stops.
  void End();

  const WatchOptions& Options() const { return options_; }
  const WatchpostCls& Post() const { return post_; }
  /// The newest first.
  const std::deque<WatchNews>& Changes() const { return changes_; }
  std::int32_t Rounds() const { return rounds_; }
  bool IsInterrupted() const { return isInterrupted_; }
  Date Started() const { return started_; }
  Date Ended() const { return ended_; }  // 0: not yet
  /// Hosts that have answered their last probe.
  std::int32_t AnsweringHosts() const;
  bool AllAnswer() const { return post_.HostCount() > 0 && AnsweringHosts() == post_.HostCount(); }

  /// What went wrong last; 0 and empty when nothing did.
  std::int32_t ErrorNumber() const { return error_; }
  const std::string& ErrorText() const { return errorText_; }

 private:
  void Probed(std::int32_t index) override;
  void Changed(std::int32_t index, WatchedChangeEnum change) override;
  void RoundEnded() override;
  bool IsOnceDone() const;
  void Reload();
  void Tick();
  void AwaitReports();
  void TellWaitingMails();
  void TellProblem();
  void TellForbiddenEcho(const WatchedHost& host);

  // The state, the page and the end are written whatever comes; who insists ends the program.
  static constexpr int kPatience = 5;

  const WatchOptions& options_;
  WatchListener& listener_;
  StoppableLoop loop_;
  const InterruptGuard guard_{loop_, kPatience};
  ReloadSignal reload_;
  WatchpostCls post_;
  std::deque<WatchNews> changes_;
  std::unordered_set<std::string> probed_;    // names
  std::unordered_set<std::string> answered_;  // names
  std::int32_t rounds_ = 0;
  bool isInterrupted_ = false;
  Date started_ = 0;
  Date ended_ = 0;
  bool isEchoForbidden_ = false;
  std::int32_t error_ = 0;
  std::string errorText_;
};

}  // namespace netro::tool
