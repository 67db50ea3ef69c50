// The message loop of one thread, as the library sees it: MessageLoop plus the notification window,
// the tasks, and the sleep of the blocking calls. Objects keep their loop alive beyond their
// thread's end.
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
#include "platform/LoopUse.h"
#include "platform/Notifier.h"
#include "platform/TaskQueue.h"

namespace netro {

class Loop final : public MessageLoop {
 public:
  Loop();

  static const std::shared_ptr<Loop>& ForThread();

  int LoopFd() const override { return notifier_.Fd(); }
  void PumpMessages() override;
  void RunLoop() override;
  void QuitLoop() override;
  void PostTask(std::function<void()> task) override;
  Task StartTask(std::function<void()> work, std::size_t stackSize) override;
  std::int32_t Sleep(std::chrono::milliseconds time) override;
  std::int32_t SetTimer(std::int32_t milliseconds, std::function<void()> callback) override;
  void KillTimer(std::int32_t timerId) override;
  void SetHostPump(std::function<void()> pump, std::chrono::milliseconds interval) override;

  bool CheckThread() const override { return use_->Checks(); }
  void CheckThread(bool value) override { use_->Checks(value); }

  const std::shared_ptr<LoopUse>& Use() const { return use_; }
  Notifier& Notifications() { return notifier_; }

  /// The thread is over: nobody will pump again. Lets go of what others gave to the loop, which may
  /// hold objects that hold the loop.
  void ThreadEnds();
  /// Before that, while everything of the thread is still there: ends its tasks.
  void EndTasks() { tasks_.EndAll(); }

  /// Ends a running Block. Any thread, signal-safe.
  void Wake() { notifier_.Wake(); }
  /// Ends every wait of the thread. Any thread, signal-safe.
  void KillWaits();
  std::uint32_t Kills() const { return kills_; }
  /// Has the calls of an object looked at, of which something has changed. Any thread, signal-safe.
  void Notify(Wakeable& object) { tasks_.Calls()->Push(object); }
  /// What Notify writes to, for helper threads: a late one must not destroy a loop on its thread.
  const std::shared_ptr<Wakeups>& Calls() const { return tasks_.Calls(); }

  /// The calling thread's loop while one of its tasks runs; else null.
  static const Loop* OfRunningTask();
  /// The task that runs; null while the thread's own stack does.
  TaskState* CurrentTask() const { return tasks_.Current(); }
  /// Has a sleeping task ask with the next pump whether its wait is over.
  void LookAt(TaskState& task) noexcept;
  /// Returns when the wait is over: puts the task to sleep, or pumps.
  void Wait(RunningWait& wait);

  /// Sleeps until there is something to pump, the moment has come, or the host pump is due.
  void Block(TimePoint until);
  /// Whether a pump asks the system for news that it has asked for just now.
  enum class Ask { Always, WhenStale };
  /// A pump without a turn for tasks: between two steps of something that a task may wait for.
  void PumpAside(Ask ask = Ask::WhenStale);
  /// False when so many pumps are nested that one which nobody waits for would be too much.
  bool MayPumpAside() const { return depth_ < kDeepestPumpAside; }
  /// True when so many calls wait one inside the other that a further one would endanger the stack.
  bool IsTooDeep() const { return waits_ >= kDeepestWait && CurrentTask() == nullptr; }
  /// Makes LoopFd readable when something is queued. Who queues outside of a pump calls it.
  void KeepReadable() noexcept;

 private:
  struct Timer {
    TimePoint due;
    std::chrono::milliseconds interval;
    std::shared_ptr<std::function<void()>> callback;
  };

  // Counts a level of nesting, also when an exception ends it.
  class Deeper {
   public:
    explicit Deeper(int& level) : level_(++level) {}
    ~Deeper() { --level_; }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;

   private:
    int& level_;
  };

  // One running RunLoop.
  struct Run {
    std::shared_ptr<CallState> state;  // of one that sleeps in a task
    bool quit = false;
    Run* outer = nullptr;
  };

  void PumpWhatCanBe();
  void Pump(Ask ask);
  void PumpTasks();
  void Collect(Ask ask);
  void RunPosted();
  void RunTimers();
  void RunTimer(std::int32_t id, TimePoint now);
  void RunHostPump();
  void Schedule(std::int32_t id, TimePoint due);
  bool HasQueued() const;
  TimePoint NextDue() const;
  void UpdateAlarm() noexcept;
  void SetAlarm(TimePoint when) noexcept;
  void WakeUnlessPumping() noexcept;
  bool AnybodyWaits() const { return waits_ > 0 || tasks_.Waiting() > 0; }

  static constexpr int kDeepestPumpAside = 5;
  static constexpr int kDeepestWait = 100;

  const std::shared_ptr<LoopUse> use_ = std::make_shared<LoopUse>();
  Notifier notifier_;
  TaskQueue tasks_;
  std::atomic<std::uint32_t> kills_{0};
  int waits_ = 0;           // blocking calls outside of tasks that wait, one inside the other
  int turns_ = 0;           // these, and the RunLoops: while there is one, the loop turns by itself
  int depth_ = 0;           // pumps that are running, one inside the other
  bool collected_ = false;  // by Block, so that the next pump need not ask again
  TimePoint collectedAt_ = TimePoint::min();
  Run* run_ = nullptr;      // the innermost RunLoop

  std::mutex postedMutex_;
  std::deque<std::function<void()>> posted_;
  std::atomic<bool> hasPosted_{false};

  std::map<std::int32_t, Timer> timers_;
  std::set<std::pair<TimePoint, std::int32_t>> schedule_;
  std::int32_t lastTimer_ = 0;
  TimePoint alarm_ = TimePoint::max();

  std::shared_ptr<std::function<void()>> hostPump_;
  std::chrono::milliseconds hostPumpInterval_{0};
  TimePoint hostPumpDue_ = TimePoint::max();
  int turnsAtHostPump_ = 0;  // when the host pump was entered that runs
};

}  // namespace netro
