// The work of "netro watch": an observation, its history, and its end in good order. Thread: the
// loop's.
#pragma once

#include <netro/WatchpostCls.h>

#include <cstdint>
#include <string>

#include "terminal/Terminal.h"
#include "watch/WatchHistory.h"
#include "watch/WatchOptions.h"

namespace netro::tool {

class Watcher;

/// Hears what happens.
class WatchListener {
 public:
  virtual ~WatchListener() = default;
  /// A host has been probed.
  virtual void Probed(const Watcher& watcher, std::int32_t index, HostNews news) {
    (void)watcher, (void)index, (void)news;
  }
  /// Comes each second, and when a round or all has ended.
  virtual void Tick(const Watcher& watcher) { (void)watcher; }
  /// Something beside the probes has gone wrong: a mail, a program, the log.
  virtual void Problem(const std::string& text) { ShowMessage(text); }
};

class Watcher final : private WatchpostClsEvents {
 public:
  Watcher(const WatchOptions& options, WatchListener& listener);

  /// False with ErrorNumber and ErrorText when the observation cannot begin.
  bool Start();
  /// Notes why the observation does not begin, for ErrorNumber and ErrorText.
  void Refuse(std::int32_t number, const std::string& text);
  /// Returns at Ctrl-C, when the output is lost, or with --once at the end of the round.
  void Run();
  /// Waits for mails of the reports, until another Ctrl-C, and stops.
  void End();

  const WatchOptions& Options() const { return options_; }
  const WatchpostCls& Post() const { return post_; }
  const WatchHistory& History() const { return history_; }
  std::int32_t Rounds() const { return rounds_; }
  bool IsInterrupted() const { return isInterrupted_; }
  Date Started() const { return started_; }
  Date Ended() const { return ended_; }  // 0: not yet
  /// Hosts that have answered their last probe.
  std::int32_t AnsweringHosts() const;
  bool AllAnswer() const {
    return history_.HostCount() > 0 && AnsweringHosts() == post_.HostCount();
  }

  /// What went wrong last; 0 and empty when nothing did.
  std::int32_t ErrorNumber() const { return error_; }
  const std::string& ErrorText() const { return errorText_; }

 private:
  void Probed(std::int32_t index) override;
  void RoundEnded() override;
  void Tick();
  void AwaitMails();
  void TellProblem();
  void TellForbiddenEcho(const WatchedHost& host);

  const WatchOptions& options_;
  WatchListener& listener_;
  WatchpostCls post_;
  WatchHistory history_;
  std::int32_t rounds_ = 0;
  bool isInterrupted_ = false;
  Date started_ = 0;
  Date ended_ = 0;
  bool isEchoForbidden_ = false;
  std::int32_t error_ = 0;
  std::string errorText_;
};

}  // namespace netro::tool
