#include "diag/Watchpost.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <new>
#include <utility>

#include "diag/WatchErrors.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostInfo.h"
#include "platform/WholeFile.h"
#include "socket/SocketErrors.h"
#include "support/DateText.h"
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kTick = 1000;
constexpr std::size_t kLargestSettings = std::size_t{16} << 20;
constexpr std::int32_t kFileNotFound = kSystemErrorBase + 2;

constexpr char kUnreadableText[] = "Can not read settings. ";

std::string LogNameOf(const std::string& settingsName, const WatchSettings& settings) {
  if (!settings.logFile.empty()) return settings.logFile;
  return std::filesystem::path(settingsName).replace_extension("csv").string();
}

bool IsLogWanted(const WatchSettings& settings) {
  const auto logs = [](const WatchAction& action) { return action.kind == WatchAction::Log; };
  return !settings.logFile.empty() || std::ranges::any_of(settings.upActions, logs) ||
         std::ranges::any_of(settings.downActions, logs);
}

}  // namespace

Watchpost::Watchpost(WatchpostCls& owner)
    : owner_(&owner),
      module_(SocketModule::ForThread()),
      probes_(
          [this](WatchProbes::Number number, const ProbeResult& result) { Ended(number, result); }),
      reports_([this](std::int32_t error, const char* state, const WatchFacts& facts,
                      const std::string& text) { Note(error, state, facts, text); }),
      senderHostName_(ReadHostName()),
      noMemory_(SocketErrorText(kErrNoBuffers)) {
  log_.Events(this);
}

bool Watchpost::Fail(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = std::move(text);
  return false;
}

bool Watchpost::Succeed() { return !Fail(0, {}); }

// LastErrMsg has the text.
bool Watchpost::NoMemory() { return Fail(kErrNoBuffers, {}); }

bool Watchpost::Read(const std::string& fileName, WatchSettings& settings) {
  std::string text;
  const std::int32_t error = ReadWholeFile(fileName, text, kLargestSettings);
  if (error == kFileNotFound) {
    return Fail(kNoFile, "Settings file not found: '" + fileName + "'.");
  }
  if (error != 0) {
    return Fail(kUnreadable, "Can not read settings. " + SystemErrorText(error) + ".");
  }
  const WatchMeans means{tls_ != nullptr, owner_->OwnReports(), !own_.empty()};
  std::string problem = ReadWatchSettings(text, means, settings);
  if (!problem.empty()) return Fail(kUnusable, std::move(problem));
  const std::filesystem::path folder = std::filesystem::path(fileName).parent_path();
  for (std::string* name : {&settings.logFile, &settings.stateFile, &settings.spoolFolder}) {
    if (!name->empty()) *name = (folder / *name).string();
  }
  return AddOwn(settings) && CheckEchoes(settings);
}

bool Watchpost::AddOwn(WatchSettings& settings) {
  for (const WatchTarget& target : own_) {
    if (FindWatchTarget(settings.targets, target.name) < settings.targets.size()) {
      return Fail(kUnusable, kUnreadableText + ("'" + target.name + "' was added already."));
    }
    settings.targets.push_back(target);
  }
  return own_.empty() || CheckHosts(settings);
}

// What reading the file has not checked, as hosts of the program come and go.
bool Watchpost::CheckHosts(const WatchSettings& settings) {
  const std::vector<WatchTarget>& targets = settings.targets;
  std::string why;
  const std::size_t bad = FindBadParent(targets, settings.uplink, why);
  if (bad < targets.size()) return Fail(kBadHost, "'" + targets[bad].name + "'" + why);
  if (settings.uplink.empty() || FindWatchTarget(targets, settings.uplink) < targets.size()) {
    return true;
  }
  return Fail(kBadHost, "The uplink '" + settings.uplink + "' is not in the list.");
}

// A watcher that cannot see anything must not look as if all were well.
bool Watchpost::CheckEchoes(const WatchSettings& settings) {
  const auto isEcho = [](const WatchTarget& target) { return target.kind == WatchKind::Ping; };
  if (!std::ranges::all_of(settings.targets, isEcho)) return true;
  const std::int32_t error = WatchEchoes().Open(*ParseAddress("127.0.0.1"));
  if (error == 0 || IsOwnLack(error)) return true;
  return Fail(
      kNoEchoAllowed,
      "ICMPCreateFile Error. The system allows this program no echo, and there are no hosts "
      "of another kind.");
}

// The log is asked for by its name or an action. Else it is no reason not to observe, and LastErr
// is a warning.
bool Watchpost::OpenLog(const std::string& fileName, const WatchSettings& settings) {
  const std::string name = LogNameOf(fileName, settings);
  if (name == fileName) {
    Fail(kNoLog, "Can not start logging. The settings file must not end with csv.");
  } else {
    log_.LogFileName(name);
    logOpen_ = log_.StartLogging();
    if (logOpen_) return Succeed();
    Fail(kNoLog, "Can not start logging. " + lastErrMsg_);
  }
  return !IsLogWanted(settings);
}

bool Watchpost::IsQuiet() const {
  constexpr double kMinutesOfDay = 24 * 60;
  const Date local = LocalClock().date;
  const double minute = (local - std::floor(local)) * kMinutesOfDay;
  return settings_.quietHours.Has(static_cast<std::int32_t>(minute));
}

bool Watchpost::StartTimer() {
  Loop& loop = module_->MessageLoop();
  if (loop.Notifications().Open() != 0) return Fail(kNoTimer, "Can not start a timer.");
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
  if (!Begin(fileName)) return false;
  Hunting(true);
  return true;
}

bool Watchpost::Begin(const std::string& fileName) {
  WatchSettings settings;
  if (!Read(fileName, settings)) return false;
  WatchList list;
  list.Assign(settings, Now());
  if (!OpenLog(fileName, settings)) return false;
  const OnException undo([this] {
    StopTimer();
    CloseLog();
  });
  if (!StartTimer()) {
    CloseLog();
    return false;
  }
  list_ = std::move(list);
  TakeSettings(std::move(settings));
  ReadState();
  status_ = WatchpostStarted;
  return true;
}

void Watchpost::TakeSettings(WatchSettings settings) {
  settings_ = std::move(settings);
  probes_.Configure(settings_, tls_);
  reports_.Configure(settings_, tls_);
  list_.Tick(IsQuiet(), WallClock(), Now());
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
  GiveUpRounds();
  reports_.Flush();
  WriteState();
  status_ = WatchpostStopped;
  CloseLog();
}

void Watchpost::Abandon() {
  owner_ = nullptr;
  const bool wasObserving = status_ != WatchpostStopped;
  Release();
  // What it has sent since is not sent again by the next one, and what waits is only by that one.
  if (!wasObserving && stateHasWaiting_) WriteState();
  if (!ownState_.empty() && stateError_ == 0) reports_.GiveUpWaiting();
}

void Watchpost::GiveUp() {
  if (status_ != WatchpostStopped) Stop();
  reports_.GiveUp();
  stateHasWaiting_ = false;
  ownState_.clear();
}

bool Watchpost::Pause() {
  if (status_ == WatchpostPaused) return Fail(kAlreadyPaused, "Already paused.");
  if (status_ == WatchpostStopped) {
    return Fail(kNotToPause, "Watchpost is stopped. Therefore you can now pause it.");
  }
  StopTimer();
  GiveUpRounds();
  for (auto& [id, one] : histories_) one.last.reset();
  reports_.Flush();
  WriteState();
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
  if (!running_.empty()) return Fail(kBusy, "Observation is busy. Retry later.");
  if (status_ != WatchpostStarted) {
    return Fail(kNotStarted, "Observation is not started. Please use StartObseration first.");
  }
  Succeed();
  BeginRound();
  return true;
}

bool Watchpost::Refresh(const std::string& fileName) {
  WatchSettings settings;
  if (!Read(fileName, settings)) return false;
  Succeed();
  if (status_ != WatchpostStopped && log_.LogFileName() != LogNameOf(fileName, settings) &&
      !MoveLog(fileName, settings)) {
    return false;
  }
  GiveUpRounds();
  list_.Assign(settings, Now());
  TakeSettings(std::move(settings));
  RecallHosts();
  return true;
}

bool Watchpost::MoveLog(const std::string& fileName, const WatchSettings& settings) {
  const std::string before = log_.LogFileName();
  const bool wasOpen = logOpen_;
  CloseLog();
  if (OpenLog(fileName, settings)) return true;
  log_.LogFileName(before);
  logOpen_ = wasOpen && log_.StartLogging();
  return false;
}

void Watchpost::CloseLog() {
  if (std::exchange(logOpen_, false)) log_.StopLogging();
}

bool Watchpost::Add(WatchTarget target, const std::string& kind) {
  const std::string problem = ReadWatchKind(kind, tls_ != nullptr, target);
  if (!problem.empty()) return Fail(kBadHost, problem);
  if (target.name.empty() || target.host.empty()) return Fail(kBadHost, "A host has no name.");
  WatchSettings settings = settings_;
  if (FindWatchTarget(settings.targets, target.name) < settings.targets.size()) {
    return Fail(kBadHost, "'" + target.name + "' is in the list already.");
  }
  settings.targets.push_back(target);
  if (!CheckHosts(settings)) return false;
  own_.push_back(std::move(target));
  return TakeHosts(std::move(settings));
}

bool Watchpost::Remove(const std::string& name) {
  WatchSettings settings = settings_;
  const std::size_t index = FindWatchTarget(settings.targets, name);
  if (index == settings.targets.size()) return Fail(kBadHost, "'" + name + "' is not in the list.");
  settings.targets.erase(settings.targets.begin() + static_cast<std::ptrdiff_t>(index));
  if (!CheckHosts(settings)) return false;
  std::erase_if(own_, [&](const WatchTarget& own) { return EqualsIgnoreCase(own.name, name); });
  return TakeHosts(std::move(settings));
}

bool Watchpost::TakeHosts(WatchSettings settings) {
  list_.Assign(settings, Now());
  settings_ = std::move(settings);
  ForgetRemoved();
  RecallHosts();
  return Succeed();
}

bool Watchpost::Reset() {
  list_.ResetDue(Now());
  return Succeed();
}

std::int32_t Watchpost::Status() const { return running_.empty() ? status_ : WatchpostBusy; }

WatchedHost Watchpost::HostAt(std::size_t index) const {
  if (index >= list_.Size()) return {};
  const WatchList::Host& host = list_.At(index);
  WatchedHost told;
  told.Name = host.target.name;
  told.Host = host.target.host;
  told.Kind = host.target.kindText;
  told.Http = host.target.kind == WatchKind::Http || host.target.kind == WatchKind::Https;
  told.Parent = host.target.parent;
  told.State = host.state;
  told.Successes = host.successes;
  told.Failures = host.failures;
  told.LastAnswer = host.lastText;
  told.LastMilliSeconds = host.lastMilliSeconds;
  told.LastProbe = host.lastProbe;
  told.LastFailure = host.lastFailure;
  told.Since = host.since;
  told.Flapping = host.flapping;
  told.NotProbed = host.forbidden;
  const WatchList::Host* const cause = list_.CauseOf(host);
  if (host.state == WatchedUnreachable && cause != nullptr) told.Cause = cause->target.name;
  if (status_ != WatchpostStopped) {
    const std::chrono::duration<double> wait = host.due - Now();
    told.NextProbe = AddSeconds(WallClock(), std::max(wait.count(), 0.0));
  }
  return told;
}

}  // namespace netro
