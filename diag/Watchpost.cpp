#include "diag/Watchpost.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <new>
#include <utility>

#include "diag/PingWave.h"
#include "diag/WatchLog.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostInfo.h"
#include "platform/Program.h"
#include "platform/Sound.h"
#include "platform/WholeFile.h"
#include "socket/SocketErrors.h"
#include "support/DateText.h"
#include "support/OnException.h"

namespace netro {
namespace {

// docs/watch.md lists them.
enum WatchError : std::int32_t {
  kNoFile = 1,
  kUnreadable = 2,
  kUnusable = 3,
  kNoTimer = 4,
  kNoLog = 5,
  kAlreadyObserving = 6,
  kNothingToStop = 7,
  kAlreadyPaused = 8,
  kNotToPause = 9,
  kNotToContinue = 10,
  kAlreadyStarted = 11,
  kBusy = 12,
  kNotStarted = 13,
  kMailFailed = 14,
  kProgramFailed = 15,
  kLogFailed = 16,
};

constexpr std::int32_t kTick = 1000;
constexpr std::size_t kLargestSettings = std::size_t{16} << 20;
constexpr std::int32_t kFileNotFound = kSystemErrorBase + 2;

std::string LogNameOf(const std::string& settingsName) {
  return std::filesystem::path(settingsName).replace_extension("csv").string();
}

}  // namespace

Watchpost::Watchpost(WatchpostCls& owner)
    : owner_(&owner),
      module_(SocketModule::ForThread()),
      probes_([this](std::size_t index, const ProbeResult* result) { Ended(index, result); }),
      senderHostName_(ReadHostName()) {
  log_.Events(this);
}

bool Watchpost::Fail(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = std::move(text);
  return false;
}

bool Watchpost::Succeed() { return !Fail(0, {}); }

bool Watchpost::NoMemory() { return Fail(kErrNoBuffers, SocketErrorText(kErrNoBuffers)); }

bool Watchpost::Read(const std::string& fileName, WatchSettings& settings) {
  std::string text;
  const std::int32_t error = ReadWholeFile(fileName, text, kLargestSettings);
  if (error == kFileNotFound) {
    return Fail(kNoFile, "Settings file not found: '" + fileName + "'.");
  }
  if (error != 0) {
    return Fail(kUnreadable, "Can not read settings. " + SystemErrorText(error) + ".");
  }
  std::string problem = ReadWatchSettings(text, settings);
  return problem.empty() || Fail(kUnusable, std::move(problem));
}

bool Watchpost::OpenLog(const std::string& fileName) {
  if (LogNameOf(fileName) == fileName) {
    return Fail(kNoLog, "Can not start logging. The settings file must not end with csv.");
  }
  log_.LogFileName(LogNameOf(fileName));
  return log_.StartLogging() || Fail(kNoLog, "Can not start logging. " + lastErrMsg_);
}

bool Watchpost::StartTimer() {
  Loop& loop = module_->MessageLoop();
  if (loop.LoopFd() < 0) return Fail(kNoTimer, "Can not start a timer.");
  timer_ = loop.SetTimer(kTick, [self = weak_from_this()] {
    if (const auto alive = self.lock()) alive->Tick();
  });
  return true;
}

void Watchpost::StopTimer() {
  if (timer_ != 0) module_->MessageLoop().KillTimer(std::exchange(timer_, 0));
}

void Watchpost::Hunting(bool hunting) {
  if (owner_ != nullptr && owner_->Events() != nullptr) owner_->Events()->OnTheHunt(hunting);
}

bool Watchpost::Start(const std::string& fileName) {
  if (status_ != WatchpostStopped) {
    return Fail(kAlreadyObserving, "Ansel's Watchpost observation already started.");
  }
  WatchSettings settings;
  if (!Read(fileName, settings)) return false;
  WatchList list;
  list.Assign(settings, Now());
  if (!OpenLog(fileName)) return false;
  if (!StartTimer()) {
    log_.StopLogging();
    return false;
  }
  settings_ = std::move(settings);
  list_ = std::move(list);
  status_ = WatchpostStarted;
  Succeed();
  Hunting(true);
  return true;
}

bool Watchpost::Stop() {
  if (status_ == WatchpostStopped) return Fail(kNothingToStop, "Nothing to stop.");
  Succeed();
  Release();
  Hunting(false);
  return true;
}

void Watchpost::Release() {
  if (status_ == WatchpostStopped) return;
  StopTimer();
  GiveUpRound();
  TellOfMails();
  status_ = WatchpostStopped;
  log_.StopLogging();
}

void Watchpost::Abandon() {
  owner_ = nullptr;
  Release();
}

bool Watchpost::Pause() {
  if (status_ == WatchpostPaused) return Fail(kAlreadyPaused, "Already paused.");
  if (status_ == WatchpostStopped) {
    return Fail(kNotToPause, "Watchpost is stopped. Therefore you can now pause it.");
  }
  StopTimer();
  GiveUpRound();
  status_ = WatchpostPaused;
  Succeed();
  Hunting(false);
  return true;
}

bool Watchpost::Continue() {
  if (status_ == WatchpostStopped) {
    return Fail(kNotToContinue, "You have to use StartObservation.");
  }
  if (status_ != WatchpostPaused) return Fail(kAlreadyStarted, "Already started.");
  if (!StartTimer()) return false;
  status_ = WatchpostStarted;
  Succeed();
  Hunting(true);
  return true;
}

bool Watchpost::Observe() {
  if (inRound_) return Fail(kBusy, "Observation is busy. Retry later.");
  if (status_ != WatchpostStarted) {
    return Fail(kNotStarted, "Observation is not started. Please use StartObseration first.");
  }
  Succeed();
  Round();
  return true;
}

bool Watchpost::Refresh(const std::string& fileName) {
  WatchSettings settings;
  if (!Read(fileName, settings)) return false;
  if (status_ != WatchpostStopped && log_.LogFileName() != LogNameOf(fileName)) {
    const std::string before = log_.LogFileName();
    log_.StopLogging();
    if (!OpenLog(fileName)) {
      log_.LogFileName(before);
      log_.StartLogging();
      return false;
    }
  }
  GiveUpRound();
  settings_ = std::move(settings);
  list_.Assign(settings_, Now());
  return Succeed();
}

bool Watchpost::Reset() {
  list_.ResetDue(Now());
  return Succeed();
}

std::int32_t Watchpost::Status() const { return inRound_ ? WatchpostBusy : status_; }

WatchedHost Watchpost::HostAt(std::size_t index) const {
  if (index >= list_.Size()) return {};
  const WatchList::Host& host = list_.At(index);
  WatchedHost told;
  told.Name = host.target.name;
  told.Host = host.target.host;
  told.Http = host.target.http;
  told.State = host.state;
  told.Successes = host.successes;
  told.Failures = host.failures;
  told.LastAnswer = host.lastText;
  told.LastMilliSeconds = host.lastMilliSeconds;
  told.LastProbe = host.lastProbe;
  if (status_ != WatchpostStopped) {
    const std::chrono::duration<double> wait = host.due - Now();
    told.NextProbe = AddSeconds(WallClock(), std::max(wait.count(), 0.0));
  }
  return told;
}

// The hosts of a round that is given up stay due.
template <class Work>
void Watchpost::Guarded(Work work) {
  try {
    work();
  } catch (const std::bad_alloc&) {
    broken_ = true;
    lastErr_ = kErrNoBuffers;
    lastErrMsg_.clear();
  }
}

void Watchpost::Tick() {
  Guarded([this] {
    if (broken_) GiveUpRound();
    if (untold_) EndRound();
    TellOfMails();
    if (!inRound_) Round();
  });
}

void Watchpost::Round() {
  const std::vector<std::size_t> due = list_.TakeDue(Now());
  if (due.empty()) return CommitLog();
  inRound_ = true;
  running_ = due.size();
  bool echoes = false;
  for (const std::size_t index : due) echoes = echoes || !list_.At(index).target.http;
  if (echoes && settings_.playSonarSound) PlayWave({kPingWave.data(), kPingWave.size()});
  probes_.Begin(settings_, list_, due);
}

void Watchpost::GiveUpRound() {
  probes_.GiveUp();
  running_ = 0;
  inRound_ = false;
  list_.ReleaseAll();
  broken_ = untold_ = false;
}

void Watchpost::Ended(std::size_t index, const ProbeResult* result) {
  const auto self = shared_from_this();
  const OnException note([this] { untold_ = inRound_ && running_ == 0; });
  --running_;
  Guarded([&] {
    if (result == nullptr) {
      list_.Release(index);
      NoMemory();
    } else {
      const WatchChange change = list_.Record(index, *result, WallClock(), Now());
      if (change != WatchChange::None) Report(list_.At(index), change == WatchChange::Up);
      Tell(index, change);
    }
    if (inRound_ && running_ == 0) EndRound();
  });
}

// The reports are out before the events, which may stop everything.
void Watchpost::Tell(std::size_t index, WatchChange change) {
  const WatchList::Host host = list_.At(index);
  const auto place = static_cast<std::int32_t>(index);
  if (owner_ != nullptr && owner_->Events() != nullptr) owner_->Events()->Probed(place);
  if (change == WatchChange::None || owner_ == nullptr || owner_->Events() == nullptr) return;
  owner_->Events()->Alert(host.target.http ? "http" : "Ping", place, change == WatchChange::Up,
                          host.target.name, host.target.host, host.lastFailure);
}

void Watchpost::EndRound() {
  inRound_ = untold_ = false;
  CommitLog();
  if (owner_ != nullptr && owner_->Events() != nullptr) owner_->Events()->RoundEnded();
}

void Watchpost::Report(const WatchList::Host& host, bool up) {
  const WatchFacts facts{senderHostName_, host.target.name, host.target.host, host.lastFailure};
  for (const WatchAction& action : up ? settings_.upActions : settings_.downActions) {
    switch (action.kind) {
      case WatchAction::Log:
        WriteLine(up ? "up" : "down", facts, host.lastMilliSeconds,
                  FillWatchText(up ? settings_.upLogMsg : settings_.downLogMsg, settings_, facts));
        break;
      case WatchAction::Mail:
        SendMail(facts, up);
        break;
      case WatchAction::Run:
        RunProgram(action, facts);
        break;
    }
  }
}

void Watchpost::SendMail(const WatchFacts& facts, bool up) {
  WatchMail mail;
  mail.server = settings_.mailServer;
  mail.sender = settings_.sender;
  mail.recipients = settings_.recipients;
  mail.subject = FillWatchText(up ? settings_.upSubject : settings_.downSubject, settings_, facts);
  mail.text = FillWatchText(up ? settings_.upActionMsg : settings_.downActionMsg, settings_, facts);
  const std::string subject = mail.subject;
  const std::string problem = mails_->Send(std::move(mail));
  if (!problem.empty()) Note(kMailFailed, "mail", facts, "Mail '" + subject + "': " + problem);
}

void Watchpost::TellOfMails() {
  for (const std::string& failure : mails_->TakeFailures()) {
    Note(kMailFailed, "mail", WatchFacts(), failure);
  }
}

void Watchpost::RunProgram(const WatchAction& action, const WatchFacts& facts) {
  std::vector<std::string> parameters;
  std::string joined;
  for (const std::string& parameter : action.parameters) {
    parameters.push_back(FillWatchText(parameter, settings_, facts));
    joined += (joined.empty() ? "" : " ") + parameters.back();
  }
  const std::int32_t error = StartProgram(action.program, parameters);
  if (error == 0) return;
  Note(kProgramFailed, "program", facts,
       "Error while starting '" + action.program + "'. Parameters: '" + joined +
           "'. Error: " + SystemErrorText(error));
}

void Watchpost::Note(std::int32_t error, const char* state, const WatchFacts& facts,
                     const std::string& text) {
  Fail(error, text);
  WriteLine(state, facts, -1, text);
}

void Watchpost::WriteLine(const char* state, const WatchFacts& facts, std::int32_t milliSeconds,
                          const std::string& text) {
  logged_ = true;
  log_.LogEvent(WatchLogLine({DateToText(WallClock()), state, facts.name, facts.host,
                              milliSeconds < 0 ? "" : std::to_string(milliSeconds), text}));
}

void Watchpost::CommitLog() {
  if (logged_) logged_ = !log_.CommitBuffer();
}

void Watchpost::NewLogfile(std::string& Header) {
  Header = WatchLogLine({"time", "state", "name", "host", "milliseconds", "text"});
}

void Watchpost::LogError(std::int32_t /*ErrorNr*/, const std::string& ErrorText) {
  Fail(kLogFailed, "Log '" + log_.LogFileName() + "': " + ErrorText);
}

}  // namespace netro
