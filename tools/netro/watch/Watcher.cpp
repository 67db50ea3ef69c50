// The work of "netro watch".

#include "watch/Watcher.h"

#include "terminal/EchoText.h"
#include "terminal/Interrupt.h"
#include "terminal/StoppableLoop.h"
#include "terminal/Terminal.h"
#include "terminal/Timer.h"
#include "watch/WatchText.h"

namespace netro::tool {

Watcher::Watcher(const WatchOptions& options, WatchListener& listener)
    : options_(options), listener_(listener) {
  post_.SettingsName(options.settings);
  post_.Events(this);
}

bool Watcher::Start() {
  started_ = DateNow();
  if (!post_.StartObservation()) {
    Refuse(post_.LastErr(), post_.LastErrMsg());
    return false;
  }
  history_.Begin(static_cast<std::size_t>(post_.HostCount()));
  return true;
}

void Watcher::Refuse(std::int32_t number, const std::string& text) {
  error_ = number;
  errorText_ = text;
}

void Watcher::Run() {
  constexpr std::int32_t kSecond = 1000;
  StoppableLoop loop;
  const InterruptGuard guard(loop);
  const Timer timer(kSecond, [this] { Tick(); });
  post_.ObserveNow();
  loop.RunUntil([this] { return (options_.once && rounds_ > 0) || !Flush(); });
  isInterrupted_ = loop.IsStopped();
  Tick();
}

void Watcher::End() {
  post_.PauseObservation();
  AwaitMails();
  if (post_.GetStatus() != WatchpostStopped) post_.StopObservation();
  TellProblem();
  ended_ = DateNow();
  listener_.Tick(*this);
}

void Watcher::AwaitMails() {
  if (post_.MailsWaiting() == 0) return;
  constexpr std::int32_t kMilliSeconds = 20;
  StoppableLoop loop;
  const InterruptGuard guard(loop);
  const Timer timer(kMilliSeconds, [] {});
  if (isInterrupted_) {
    const std::string count = std::to_string(post_.MailsWaiting());
    listener_.Problem("waiting for the mails of reports: " + count + "; Ctrl-C gives them up");
  }
  loop.RunUntil([this] { return post_.MailsWaiting() == 0; });
  if (!loop.IsStopped()) return;
  isInterrupted_ = true;
  post_.Kill();
}

std::int32_t Watcher::AnsweringHosts() const {
  std::int32_t count = 0;
  for (std::int32_t i = 0; i < post_.HostCount(); ++i) {
    count += post_.HostAt(i).Successes > 0 ? 1 : 0;
  }
  return count;
}

void Watcher::Probed(std::int32_t index) {
  const WatchedHost host = post_.HostAt(index);
  const HostNews news = history_.Add(static_cast<std::size_t>(index), host);
  listener_.Probed(*this, index, news);
  TellForbiddenEcho(host);
  TellProblem();
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
  constexpr const char* kNoEcho = "ICMPCreateFile Error";
  if (isEchoForbidden_ || host.LastAnswer != kNoEcho) return;
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
