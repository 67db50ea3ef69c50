// The message loop of one thread, as the library sees it: MessageLoop plus the notification window
// and the sleep of the blocking calls. Objects keep their loop alive beyond their thread's end.
#pragma once

#include <netro/MessageLoop.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "platform/Clock.h"
#include "platform/Notifier.h"

namespace netro {

class Loop final : public MessageLoop {
 public:
  Loop() = default;

  static const std::shared_ptr<Loop>& ForThread();

  int LoopFd() const override { return notifier_.Fd(); }
  void PumpMessages() override;
  void RunLoop() override;
  void QuitLoop() override;
  void PostTask(std::function<void()> task) override;
  std::int32_t SetTimer(std::int32_t milliseconds, std::function<void()> callback) override;
  void KillTimer(std::int32_t timerId) override;
  void SetHostPump(std::function<void()> pump) override;

  Notifier& Notifications() { return notifier_; }

  /// The thread is over: nobody will pump again. Lets go of what others gave to the loop, which may
  /// hold objects that hold the loop.
  void ThreadEnds();

  /// Ends a running Block. Any thread, signal-safe.
  void Wake() { notifier_.Wake(); }

  /// Sleeps until there is something to pump, the moment has come, or the host pump is due.
  void Block(TimePoint until);
  /// False when so many pumps are nested that one which nobody waits for would be too much.
  bool MayPumpAside() const { return depth_ < kDeepestPumpAside; }
  /// Marks the time that a blocking call waits; only then the host pump is run.
  class WaitScope {
   public:
    explicit WaitScope(Loop& loop) : loop_(loop) { ++loop_.waits_; }
    ~WaitScope() { --loop_.waits_; }
    WaitScope(const WaitScope&) = delete;
    WaitScope& operator=(const WaitScope&) = delete;

   private:
    Loop& loop_;
  };

  /// Runs the host pump when its 10 ms are over.
  void RunHostPump();
  /// Makes LoopFd readable when something is queued. Every pump ends with it; who queues outside of
  /// a pump calls it.
  void KeepReadable();

 private:
  struct Timer {
    TimePoint due;
    std::chrono::milliseconds interval;
    std::shared_ptr<std::function<void()>> callback;
  };

  // Counts a level of nesting, also when an exception ends it: for lack of memory, or of the
  // host's.
  class Deeper {
   public:
    explicit Deeper(int& level) : level_(++level) {}
    ~Deeper() { --level_; }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;

   private:
    int& level_;
  };

  void RunTasks();
  void RunTimers();
  void RunTimer(std::int32_t id, TimePoint now);
  void Schedule(std::int32_t id, TimePoint due);
  void UpdateAlarm();

  static constexpr int kDeepestPumpAside = 5;

  Notifier notifier_;
  int waits_ = 0;           // blocking calls that wait, one inside the other
  int depth_ = 0;           // pumps that are running, one inside the other
  bool collected_ = false;  // by Block, so that the next pump need not ask again
  int runDepth_ = 0;
  bool quit_ = false;

  std::mutex tasksMutex_;
  std::deque<std::function<void()>> tasks_;
  std::atomic<bool> hasTasks_{false};

  std::map<std::int32_t, Timer> timers_;
  std::set<std::pair<TimePoint, std::int32_t>> schedule_;
  std::int32_t lastTimer_ = 0;
  TimePoint alarm_ = TimePoint::max();

  std::shared_ptr<std::function<void()>> hostPump_;
  TimePoint hostPumpDue_ = TimePoint::max();
};

}  // namespace netro
