#include "diag/WatchHooks.h"

#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <algorithm>
#include <array>
#include <new>

#include "diag/WatchProbe.h"
#include "diag/WatchShown.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "support/DateText.h"

namespace netro {
namespace {

using namespace std::chrono_literals;

constexpr std::array kRetries{5s, 15s, 60s, 300s, 900s};
constexpr std::chrono::seconds kLongestRetry = 1h;
constexpr double kMostDays = 1;
// An answer that says that the server itself has failed may be about this one report, which must
// not hold the others for a day.
constexpr std::int32_t kMostFailures = 5;
constexpr std::int32_t kConnectSeconds = 10;
constexpr std::int32_t kAnswerSeconds = 20;
constexpr std::int32_t kFirstFinal = 200;  // interim answers come before (RFC 9110, section 15.2)
constexpr std::size_t kMostBody = std::size_t{64} << 10;
constexpr auto kBodyTime = 2s;
constexpr auto kNoMemoryPause = 1s;
constexpr auto kNext = 0s;

bool IsTaken(std::int32_t status) { return status >= 200 && status <= 299; }

// The server is away, or asks for patience (RFC 9110, section 15; RFC 6585, section 4).
bool IsAway(std::int32_t status) {
  return status == 0 || status == 408 || status == 429 || (status >= 502 && status <= 504);
}

// One POST. The status is the answer: of the body as much is taken as keeps the connection usable.
class HookCall final : private HTTPClsEvents {
 public:
  HookCall(const WatchHook& hook, std::shared_ptr<TlsProvider> tls) {
    http_.Events(this);
    http_.URL(hook.url);
    http_.Tls(std::move(tls));
    http_.Method("POST");
    http_.PostData(hook.body);
    http_.AddHeader("Content-Type", "application/json");
    http_.ConnectTimeout(kConnectSeconds);
    http_.TimeOutSeconds(kAnswerSeconds);
    http_.KeepAlive(true);
    http_.BodyToEvents(true);
  }

  HookAnswer Run() {
    bool timeout = false;
    const std::string text = http_.HTTPQuery(timeout);
    const std::int32_t error = http_.LastErr();
    if (status_ == 0 || (error == kErrCancelled && !enough_)) {
      return {error, 0, text.empty() ? "no answer" : text};
    }
    return {0, status_, "HTTP answer: " + std::to_string(status_) + " " + http_.HTTPResultMsg(),
            http_.RetryAfter()};
  }

 private:
  void Status(HTTPCls& /*ParentObj*/, const std::string& /*RemoteHostIP*/) override {
    if (http_.HTTPResult() < kFirstFinal || status_ != 0) return;
    status_ = http_.HTTPResult();
    bodyEnd_ = Now() + kBodyTime;
  }

  void Body(HTTPCls& /*ParentObj*/, std::span<const std::uint8_t> BinData) override {
    body_ += BinData.size();
    if (enough_ || status_ == 0 || (body_ <= kMostBody && Now() < bodyEnd_)) return;
    enough_ = true;
    http_.StopWaiting();
  }

  HTTPCls http_;
  std::int32_t status_ = 0;
  std::size_t body_ = 0;
  TimePoint bodyEnd_;
  bool enough_ = false;
};

bool MayHelpLater(std::int32_t error, std::int32_t status) {
  return error != kErrInvalidArgument && error != kErrProtocolNotSupported &&
         (IsAway(status) || status >= 500);
}

}  // namespace

void WatchHooks::Add(WatchHook hook) {
  const auto found = queues_.find(hook.url);
  if (found != queues_.end() && found->second.hooks.size() >= kMostWaiting) {
    return Tell(hook, "too many wait already.");
  }
  const std::string url = hook.url;
  queues_[url].hooks.push_back(std::move(hook));
}

void WatchHooks::Resume() {
  for (auto& [url, queue] : queues_) {
    if (!queue.task.Done()) continue;
    queue.task = MessageLoop::ForThisThread().StartTask(
        [self = shared_from_this(), name = url] { self->Work(name); });
  }
}

void WatchHooks::GiveUp() {
  for (const auto& [url, queue] : queues_) queue.task.Cancel();
  queues_.clear();
}

std::vector<std::vector<std::string>> WatchHooks::Queued() const {
  std::vector<std::vector<std::string>> all;
  for (const auto& [url, queue] : queues_) {
    for (const WatchHook& hook : queue.hooks) {
      all.push_back({DateToText(hook.created), url, hook.body});
    }
  }
  return all;
}

void WatchHooks::Recall(std::vector<std::string> fields) {
  const auto created = fields.size() == 3 ? TextToDate(fields[0]) : std::nullopt;
  if (created) Add({*created, std::move(fields[1]), std::move(fields[2])});
}

std::size_t WatchHooks::Untried() const {
  std::size_t count = 0;
  for (const auto& [url, queue] : queues_) count += queue.tries == 0 ? queue.hooks.size() : 0;
  return count;
}

void WatchHooks::Work(const std::string& url) {
  std::int32_t cancelled = 0;
  while (cancelled == 0 && Own(url) != nullptr) {
    std::chrono::seconds pause = kNoMemoryPause;
    try {
      pause = Step(url);
    } catch (const std::bad_alloc&) {
    }
    cancelled = MessageLoop::ForThisThread().Sleep(pause);
  }
}

std::chrono::seconds WatchHooks::Step(const std::string& url) {
  const Queue* queue = Own(url);
  if (queue == nullptr) return kNext;
  if (queue->hooks.empty()) {  // the only one had no room
    queues_.erase(url);
    return kNext;
  }
  const WatchHook hook = queue->hooks.front();
  const HookAnswer answer = Send(hook);
  return answer.error == kErrCancelled ? kNext : Take(url, answer);
}

// Null when it was given up meanwhile, also when there is a new one.
WatchHooks::Queue* WatchHooks::Own(const std::string& url) {
  const auto found = queues_.find(url);
  const bool isOwn = found != queues_.end() && found->second.task == Task::Current();
  return isOwn ? &found->second : nullptr;
}

HookAnswer WatchHooks::Send(const WatchHook& hook) const {
  return HookCall(hook, tls_).Run();
}

// What becomes of the first one, and how long the next step has time.
std::chrono::seconds WatchHooks::Take(const std::string& url, const HookAnswer& answer) {
  Queue* const own = Own(url);
  if (own == nullptr) return kNext;
  Queue& queue = *own;
  ++queue.tries;
  if (!IsTaken(answer.status)) {
    const bool tooOften = !IsAway(answer.status) && queue.tries >= kMostFailures;
    const bool tooOld = WallClock() - queue.hooks.front().created > kMostDays;
    if (MayHelpLater(answer.error, answer.status) && !tooOften && !tooOld) {
      return Repeat(queue, answer);
    }
    Tell(queue.hooks.front(), Sentence(answer.text) + " It is given up.");
  }
  queue.tries = 0;
  queue.hooks.pop_front();
  ++out_;
  if (queue.hooks.empty()) queues_.erase(url);
  return kNext;
}

std::chrono::seconds WatchHooks::Repeat(Queue& queue, const HookAnswer& answer) {
  if (queue.tries == 1)
    Tell(queue.hooks.front(), Sentence(answer.text) + " It will be tried again.");
  const auto number = static_cast<std::size_t>(queue.tries - 1);
  const std::chrono::seconds usual = number < kRetries.size() ? kRetries[number] : kLongestRetry;
  const std::chrono::seconds asked(std::clamp<std::int64_t>(answer.retryAfter, 0, 3600));
  return std::max(usual, asked);
}

void WatchHooks::Tell(const WatchHook& hook, const std::string& text) const {
  if (!*notes_) return;
  WatchFacts facts;
  facts.host = OriginOf(hook.url);
  (*notes_)(kHookFailed, "webhook", facts,
            HarmlessText("Webhook '" + facts.host + "': " + text));
}

}  // namespace netro
