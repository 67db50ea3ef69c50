// A probe goes through these steps, each as soon as it may:
//
//   unresolved -> resolving -> ready -> echo or request under way -> ended
//
// Work, run by a timer while there is anything but echoes to wait for, moves the probes of each
// step on and ends those whose time is over; so lookups need no more than a look now and then, and
// no probe ends inside Begin.
#include "diag/WatchProbes.h"

#include <algorithm>

#include "diag/IcmpTexts.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "web/HttpHead.h"

namespace netro {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kWorkInterval(10);
constexpr std::chrono::seconds kLookupTime(10);
// Leaves descriptors to the rest of a program that may have a thousand.
constexpr std::size_t kMostRequests = 512;

constexpr char kNameUnknown[] = "DNS Error. Can not resolve Host Name";
constexpr char kNoEcho[] = "ICMPCreateFile Error";

// What a server says is kept for each host, and goes into logs and mails.
std::string Harmless(std::string line) {
  constexpr std::size_t kMostKept = 200;
  line.resize(std::min(line.size(), kMostKept));
  const auto isStrange = [](unsigned char c) { return c < 0x20 || c > 0x7E; };
  std::replace_if(line.begin(), line.end(), isStrange, '?');
  return line;
}

bool IsOwnLack(std::int32_t error) { return error == kErrTooManyFiles || error == kErrNoBuffers; }

}  // namespace

WatchProbes::WatchProbes(Ended ended)
    : module_(SocketModule::ForThread()), ended_(std::move(ended)) {}

WatchProbes::~WatchProbes() {
  *alive_ = false;
  StopTimer();
}

void WatchProbes::StopTimer() {
  if (timer_ != 0) module_->MessageLoop().KillTimer(std::exchange(timer_, 0));
}

void WatchProbes::Begin(const WatchSettings& settings, const WatchList& list,
                        const std::vector<std::size_t>& indexes) {
  echoTimeout_ = milliseconds(settings.timeout);
  packetSize_ = settings.packetSize;
  httpTimeout_ = std::chrono::seconds(settings.httpTimeout);
  for (const std::size_t index : indexes) {
    const WatchTarget& target = list.At(index).target;
    Probe& probe = probes_[index];
    probe.http = target.http;
    probe.host = target.host;
    SetDeadline(index, probe, Now() + kLookupTime);
    unresolved_.push_back(index);
  }
  StopTimer();
  timer_ = module_->MessageLoop().SetTimer(kWorkInterval.count(), [this] { Work(); });
  module_->MessageLoop().PostTask([this, alive = alive_] { *alive&& Work(); });
}

void WatchProbes::GiveUp() {
  StopTimer();
  for (const auto& [index, probe] : probes_) {
    if (probe.echo != 0) echoes_->Cancel(probe.echo);
  }
  probes_.clear();
  byEcho_.clear();
  deadlines_.clear();
  unresolved_.clear();
  resolving_.clear();
  ready_.clear();
  requests_ = 0;
}

void WatchProbes::SetDeadline(std::size_t index, Probe& probe, TimePoint deadline) {
  deadlines_.erase({probe.deadline, index});
  probe.deadline = deadline;
  if (deadline != TimePoint::max()) deadlines_.insert({deadline, index});
}

bool WatchProbes::Work() {
  if (!Step(&WatchProbes::BeginLookup, unresolved_) ||
      !Step(&WatchProbes::TakeLookup, resolving_) || !Step(&WatchProbes::Start, ready_) ||
      !Expire()) {
    return false;
  }
  if (deadlines_.empty()) StopTimer();
  return true;
}

// A probe whose step cannot be done yet puts itself at the end of the queue again.
bool WatchProbes::Step(bool (WatchProbes::*step)(std::size_t), std::deque<std::size_t>& queue) {
  const auto alive = alive_;
  for (std::size_t left = queue.size(); left > 0 && !queue.empty(); --left) {
    const std::size_t index = queue.front();
    queue.pop_front();
    if (probes_.contains(index) && !(this->*step)(index)) return false;
  }
  return *alive;
}

bool WatchProbes::BeginLookup(std::size_t index) {
  Probe& probe = probes_[index];
  if (probe.http) {
    UrlResult split = SplitUrl(probe.host);
    if (!split.error.empty()) return Fail(index, "URL: " + split.error);
    if (split.url.protocol != "http") {
      return Fail(index, "URL: the protocol \"" + split.url.protocol + "\" is not supported.");
    }
    probe.url = std::move(split.url);
  }
  const std::string& host = probe.http ? probe.url.host : probe.host;
  if (const auto ip = ParseAddress(host)) {
    probe.ip = *ip;
    ready_.push_back(index);
    return true;
  }
  probe.lookup = DefaultHostLookup().Begin(host, preferIPv4);
  if (probe.lookup) SetDeadline(index, probe, Now() + kLookupTime);
  (probe.lookup ? resolving_ : unresolved_).push_back(index);
  return true;
}

bool WatchProbes::TakeLookup(std::size_t index) {
  Probe& probe = probes_[index];
  if (!probe.lookup->done) {
    resolving_.push_back(index);
    return true;
  }
  LookupAnswer answer = DefaultHostLookup().Finish(*probe.lookup);
  if (IsOwnLack(answer.error)) return End(index, nullptr);
  if (answer.error != 0) return Fail(index, kNameUnknown);
  probe.ip = answer.First();
  ready_.push_back(index);
  return true;
}

bool WatchProbes::Start(std::size_t index) {
  Probe& probe = probes_[index];
  return probe.http ? StartRequest(index, probe) : StartEcho(index, probe);
}

bool WatchProbes::StartEcho(std::size_t index, Probe& probe) {
  SetDeadline(index, probe, TimePoint::max());
  if (!echoes_) {
    echoes_ = std::make_unique<EchoRequests>(
        [this](std::int32_t echo, const EchoOutcome& outcome) { Echoed(echo, outcome); });
  }
  const std::int32_t error = echoes_->Open(probe.ip);
  if (IsOwnLack(error)) return End(index, nullptr);
  if (error != 0) return Fail(index, kNoEcho);
  probe.echo = echoes_->Send({probe.ip, 0, packetSize_}, echoTimeout_);
  if (probe.echo == 0) return End(index, nullptr);
  byEcho_[probe.echo] = index;
  return true;
}

bool WatchProbes::Echoed(std::int32_t echo, const EchoOutcome& outcome) {
  const auto found = byEcho_.find(echo);
  if (found == byEcho_.end()) return true;
  const std::size_t index = found->second;
  byEcho_.erase(found);
  if (outcome.status == kIpNoResources) return End(index, nullptr);
  if (outcome.status != kIpSuccess) return Fail(index, IcmpErrorText(outcome.status));
  return Succeed(index, outcome.roundTrip);
}

bool WatchProbes::StartRequest(std::size_t index, Probe& probe) {
  if (requests_ >= kMostRequests) {
    SetDeadline(index, probe, Now() + kLookupTime);
    ready_.push_back(index);
    return true;
  }
  probe.begun = Now();
  SetDeadline(index, probe, probe.begun + httpTimeout_);
  probe.request = std::make_unique<HttpProbe>(
      probe.url,
      [this, index](std::int32_t error, const std::string& line) { Answered(index, error, line); });
  ++requests_;
  const std::int32_t error = probe.request->Begin(FormatAddress(probe.ip));
  return error == 0 || Answered(index, error, {});
}

bool WatchProbes::Answered(std::size_t index, std::int32_t error, const std::string& line) {
  if (IsOwnLack(error)) return End(index, nullptr);
  if (error != 0) return Fail(index, SocketErrorText(error));
  const std::int32_t status = line.starts_with("HTTP/") ? ParseStatusLine(line).code : 0;
  if (status < 200 || status > 399) return Fail(index, "HTTP answer: " + Harmless(line));
  return Succeed(index, Now() - probes_[index].begun);
}

// A lookup that could not even begin says nothing about its host. What has come while the thread
// was busy is no silence, and the loop delivers it after its timers: a time must have been over
// already when this was called last.
bool WatchProbes::Expire() {
  const auto alive = alive_;
  const TimePoint now = std::exchange(lastLook_, Now());
  while (*alive && !deadlines_.empty() && deadlines_.begin()->first <= now) {
    const std::size_t index = deadlines_.begin()->second;
    const Probe& probe = probes_[index];
    if (probe.request) {
      Fail(index, SocketErrorText(kErrTimedOut));
    } else if (probe.lookup) {
      Fail(index, kNameUnknown);
    } else {
      End(index, nullptr);
    }
  }
  return *alive;
}

bool WatchProbes::Fail(std::size_t index, std::string text) {
  const ProbeResult result{false, -1, std::move(text)};
  return End(index, &result);
}

bool WatchProbes::Succeed(std::size_t index, nanoseconds time) {
  ProbeResult result{true, static_cast<std::int32_t>(time / milliseconds(1)), {}};
  result.text = "Success: " + std::to_string(result.milliSeconds) + " ms";
  return End(index, &result);
}

bool WatchProbes::End(std::size_t index, const ProbeResult* result) {
  const auto alive = alive_;
  const auto found = probes_.find(index);
  SetDeadline(index, found->second, TimePoint::max());
  requests_ -= found->second.request ? 1 : 0;
  const Probe ended = std::move(found->second);  // its request may be the one that calls
  probes_.erase(found);
  ended_(index, result);
  return *alive;
}

}  // namespace netro
