// The work of "netro watch".

#include "watch/Watcher.h"

#include "terminal/EchoText.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"
#include "terminal/Timer.h"
#include "watch/WatchText.h"

namespace netro::tool {

Watcher::Watcher(const WatchOptions& options, WatchListener& listener)
    : options_(options), listener_(listener) {
  post_.SettingsName(options.settings);
  post_.Tls(ReadTls(options.tls));
  post_.Events(this);
}

bool Watcher::Start() {
  started_ = DateNow();
  if (!post_.StartObservation()) {
    Refuse(post_.LastErr(), post_.LastErrMsg());
    return false;
  }
  return true;
}

void Watcher::Refuse(std::int32_t number, const std::string& text) {
  error_ = number;
  errorText_ = text;
}

void Watcher::Run() {
  constexpr std::int32_t kSecond = 1000;
  const Timer timer(kSecond, [this] {
    if (reload_.Take()) Reload();
    Tick();
  });
  TellProblem();  // a warning of the start, which the next call forgets
  post_.ObserveNow();
  loop_.RunUntil([this] { return IsOnceDone() || !Flush(); });
  isInterrupted_ = loop_.IsStopped();
  Tick();
}

// A host that could not be probed for lack of memory or the like is not waited for.
bool Watcher::IsOnceDone() const {
  if (!options_.once) return false;
  const bool isIdle = rounds_ > 0 && post_.GetStatus() != WatchpostBusy;
  return isIdle || probed_.size() == static_cast<std::size_t>(post_.HostCount());
}

void Watcher::Reload() {
  TellProblem();
  if (post_.RefreshSettings()) {
    listener_.Problem("settings read again: " + CountsText(WatchOverview(post_).Counts()));
    TellProblem();
    return;
  }
  Refuse(post_.LastErr(), post_.LastErrMsg());
  listener_.Problem("the settings stay as they were: " + errorText_);
}

void Watcher::End() {
  TellProblem();
  post_.PauseObservation();
  AwaitReports();
  TellProblem();
  if (post_.GetStatus() != WatchpostStopped) post_.StopObservation();
  TellProblem();
  TellWaitingMails();
  ended_ = DateNow();
  listener_.Tick(*this);
}

// Some who end a program send the signal twice, to it and to its group: that is one.
void Watcher::AwaitReports() {
  if (post_.ReportsUntried() == 0) return;
  constexpr std::int32_t kMilliSeconds = 20;
  constexpr double kTwice = 0.5;
  const Stopwatch watch;
  const Timer timer(kMilliSeconds, [this] { TellProblem(); });
  if (isInterrupted_) {
    const std::string count = std::to_string(post_.ReportsUntried());
    listener_.Problem("waiting for reports to go out: " + count + "; Ctrl-C gives them up");
  }
  for (bool isOver = false; !isOver;) {
    StoppableLoop loop;
    const InterruptGuard guard(loop);
    loop.RunUntil([this] { return post_.ReportsUntried() == 0; });
    if (!loop.IsStopped()) return;
    isOver = watch.Seconds() > kTwice;
  }
  isInterrupted_ = true;
  post_.Kill();
}

void Watcher::TellWaitingMails() {
  const std::int32_t count = post_.MailsWaiting();
  if (count == 0) return;
  listener_.Problem("mails that their server has put off: " + std::to_string(count) +
                    ". With a SpoolFolder in the settings the next start goes on with them.");
}

std::int32_t Watcher::AnsweringHosts() const {
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < post_.HostCount(); ++i) {
    count += post_.HostAt(i).LastMilliSeconds >= 0 ? 1 : 0;
  }
  return count;
}

void Watcher::Probed(std::int32_t index) {
  const WatchedHost host = post_.HostAt(index);
  probed_.insert(host.Name);
  const bool isFirst = host.LastMilliSeconds >= 0 && answered_.insert(host.Name).second;
  listener_.Probed(*this, host, isFirst);
  TellForbiddenEcho(host);
  TellProblem();
}

void Watcher::Changed(std::int32_t index, WatchedChangeEnum change) {
  changes_.push_front({DateNow(), change, post_.HostAt(index)});
  if (changes_.size() > kMostChanges) changes_.pop_back();
  answered_.insert(changes_.front().host.Name);
  listener_.Changed(*this, changes_.front());
}

void Watcher::RoundEnded() {
  ++rounds_;
  Tick();
}

void Watcher::Tick() {
  TellProblem();
  listener_.Tick(*this);
}

void Watcher::TellForbiddenEcho(const WatchedHost& host) {
  if (isEchoForbidden_ || !host.NotProbed) return;
  isEchoForbidden_ = true;
  listener_.Problem(EchoForbiddenText());
}

// WatchpostCls keeps the last one only, and the log has all of them.
void Watcher::TellProblem() {
  if (post_.LastErr() == 0 || post_.LastErrMsg() == errorText_) return;
  error_ = post_.LastErr();
  errorText_ = post_.LastErrMsg();
  listener_.Problem(errorText_);
}

}  // namespace netro::tool
