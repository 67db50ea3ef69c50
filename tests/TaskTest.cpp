// Tasks: their order, what they throw, what they wait for, how they end; Async and Await.
#include <netro/Async.h>
#include <netro/SocketCls.h>

#include <coroutine>
#include <new>

#include "SocketTestKit.h"
#include "platform/Fiber.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

MessageLoop& ThisLoop() { return MessageLoop::ForThisThread(); }

void PumpUntilDone(const Task& task) {
  while (!task.Done()) ThisLoop().PumpMessages();
}

TEST(Task, BeginsWithTheNextPumpAndMakesTheDescriptorReadable) {
  while (ThisLoop().Sleep(milliseconds(0)) != 0) continue;
  bool ran = false;
  const Task task = ThisLoop().StartTask([&] { ran = true; });
  EXPECT_FALSE(ran);
  EXPECT_TRUE(AwaitReadable(ThisLoop().LoopFd(), 5'000));
  ThisLoop().PumpMessages();
  EXPECT_TRUE(ran);
  EXPECT_TRUE(task.Done());
  EXPECT_EQ(task.Wait(), 0);
}

TEST(Task, HandlesAreValues) {
  const Task none;
  EXPECT_TRUE(none.Done());
  EXPECT_FALSE(none);
  none.Cancel();
  none.Deadline(milliseconds(1));
  EXPECT_EQ(none.Wait(), 0);

  Task inside;
  Task task = ThisLoop().StartTask([&] { inside = Task::Current(); });
  const Task copy = task;
  task = Task();  // dropping one changes nothing
  PumpUntilDone(copy);
  EXPECT_TRUE(inside);
  EXPECT_EQ(inside, copy);

  std::int32_t slept = 0;
  const Task unborn = ThisLoop().StartTask([&] { slept = ThisLoop().Sleep(seconds(60)); });
  unborn.Cancel();
  EXPECT_EQ(unborn.Wait(), 0);
  EXPECT_EQ(slept, 9999);
}

TEST(Task, NobodyTakesTheTurnOfOthers) {
  std::vector<int> order;
  std::vector<Task> tasks;
  for (int i = 0; i < 3; ++i) {
    tasks.push_back(ThisLoop().StartTask([&, i] {
      for (int turn = 0; turn < 3; ++turn) {
        order.push_back(i);
        ThisLoop().PumpMessages();
      }
    }));
  }
  for (const Task& task : tasks) PumpUntilDone(task);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 0, 1, 2, 0, 1, 2}));
}

TEST(Task, WaitsForOthersAndForEachOtherUntilADeadline) {
  Task first;
  Task second;
  std::int32_t own = 0;
  std::int32_t results[2] = {};
  first = ThisLoop().StartTask([&] {
    bool slept = false;
    const Task inner =
        ThisLoop().StartTask([&] { slept = ThisLoop().Sleep(milliseconds(5)) == 0; });
    EXPECT_EQ(inner.Wait(), 0);
    EXPECT_TRUE(slept);
    own = Task::Current().Wait();
    Task::Current().Deadline(milliseconds(20));
    results[0] = second.Wait();
  });
  second = ThisLoop().StartTask([&] { results[1] = first.Wait(); });
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_EQ(second.Wait(), 0);
  EXPECT_EQ(own, 10036);
  EXPECT_EQ(results[0], 10002);
  EXPECT_EQ(results[1], 0);
}

TEST(Task, SleepsByTheClockOfTheLibrary) {
  std::vector<int> order;
  std::vector<Task> tasks;
  for (const int minutes : {30, 10, 50, 20, 40}) {
    tasks.push_back(ThisLoop().StartTask([&, minutes] {
      EXPECT_EQ(ThisLoop().Sleep(std::chrono::minutes(minutes)), 0);
      order.push_back(minutes);
    }));
  }
  ThisLoop().PumpMessages();
  for (int i = 0; i < 5; ++i) {
    AdvanceClockForTests(std::chrono::minutes(10));
    ThisLoop().PumpMessages();
    ThisLoop().PumpMessages();
  }
  EXPECT_EQ(order, (std::vector<int>{10, 20, 30, 40, 50}));
  for (const Task& task : tasks) EXPECT_TRUE(task.Done());
  EXPECT_EQ(ThisLoop().Sleep(milliseconds::min()), 0);
}

TEST(Task, GoesOnBesideAWaitThatNestsOutside) {
  int turns = 0;
  bool stop = false;
  const Task task = ThisLoop().StartTask([&] {
    for (; !stop; ++turns) ThisLoop().Sleep(milliseconds(1));
  });
  int nested = 0;
  ThisLoop().PostTask([&] {  // an event that waits, for what a task brings
    ThisLoop().PostTask([&] {
      while (turns < 3) ThisLoop().Sleep(milliseconds(1));
      nested = turns;
    });
    while (nested == 0) ThisLoop().Sleep(milliseconds(1));
    stop = true;
  });
  EXPECT_EQ(task.Wait(), 0);
  EXPECT_GE(nested, 3);
}

// What is being handled belongs to the stack, not to the thread.
TEST(Task, SleepsInsideACatchBlock) {
  std::vector<std::string> caught;
  std::vector<Task> tasks;
  for (const int time : {500, 100, 300}) {
    tasks.push_back(ThisLoop().StartTask([&, time] {
      try {
        throw std::runtime_error(std::to_string(time));
      } catch (const std::exception&) {
        ThisLoop().Sleep(milliseconds(time));
        EXPECT_EQ(std::uncaught_exceptions(), 0);
        try {
          throw;
        } catch (const std::exception& again) {
          caught.push_back(again.what());
        }
      }
    }));
  }
  for (const Task& task : tasks) task.Wait();
  EXPECT_EQ(caught, (std::vector<std::string>{"100", "300", "500"}));
}

TEST(Task, EndOfAThreadEndsItsTasks) {
  constexpr int kTasks = 100;
  int ended = 0;
  std::vector<Task> tasks;
  std::thread([&] {
    MessageLoop& loop = MessageLoop::ForThisThread();
    for (int i = 0; i < kTasks; ++i) {
      tasks.push_back(loop.StartTask([&, i] {
        SocketCls socket;  // made before and in the end: the thread's module must still be there
        const std::int32_t error = i % 2 == 0 ? loop.Sleep(seconds(60)) : tasks[0].Wait();
        SocketCls another;
        EXPECT_EQ(error, i % 2 == 0 ? 9999 : error);
        EXPECT_EQ(loop.StartTask([] {}).Error(), 9999);
        ++ended;
        if (i == 7) throw std::runtime_error("nobody is left to take it");
      }));
    }
    loop.PumpMessages();
    EXPECT_EQ(ended, 0);
  }).join();
  EXPECT_EQ(ended, kTasks);
  for (const Task& task : tasks) {
    EXPECT_TRUE(task.Done());
    task.Cancel();  // late
  }
}

TEST(Task, DoesNotGoOnInTheChildOfAFork) {
  int turns = 0;
  bool stop = false;
  bool good = false;
  const Task task = ThisLoop().StartTask([&] {
    for (; !stop; ++turns) ThisLoop().Sleep(milliseconds(1));
    good = InChild([] {  // of its own it is no task
      return !Task::Current() && ThisLoop().Sleep(milliseconds(1)) == 0;
    });
  });
  while (turns == 0) ThisLoop().PumpMessages();
  EXPECT_TRUE(InChild([&] {
    const int before = turns;
    MessageLoop& own = MessageLoop::ForThisThread();
    bool ran = false;
    const Task another = own.StartTask([&] { ran = true; });
    return own.Sleep(milliseconds(30)) == 0 && turns == before && ran && another.Done();
  }));
  stop = true;
  EXPECT_EQ(task.Wait(), 0);
  EXPECT_TRUE(good);
}

TEST(Task, ExitInsideOneEndsTheOthers) {
  EXPECT_TRUE(InChild([] {
    MessageLoop& loop = MessageLoop::ForThisThread();
    static bool ended = false;
    loop.StartTask([&] { ended = loop.Sleep(seconds(60)) == 9999; });
    loop.StartTask([] {
      std::atexit([] { std::_Exit(ended ? 0 : 1); });
      exit(2);
    });
    loop.RunLoop();
    return false;
  }));
}

TEST(Task, NoMemoryForAStackIsToldAndNothingRuns) {
  const auto owned = std::make_shared<int>(1);
  for (const std::size_t size : {SIZE_MAX, SIZE_MAX / 4}) {
    const Task task = ThisLoop().StartTask([owned] { ADD_FAILURE(); }, size);
    EXPECT_EQ(task.Error(), 10055);
    EXPECT_TRUE(task.Done());
    EXPECT_EQ(task.Wait(), 10055);
  }
  EXPECT_EQ(owned.use_count(), 1);
  EXPECT_EQ(ThisLoop().StartTask(nullptr).Error(), 10022);
  EXPECT_EQ(ThisLoop().StartTask([] {}, 1).Wait(), 0) << "a stack is never smaller than usable";
}

// Comes back to the same depth, so that a stack which is too small is not saved by the optimiser.
int Recurse(int depth) {
  volatile char frame[1024];
  frame[0] = static_cast<char>(depth);
  return depth == 0 ? frame[0] : Recurse(depth - 1) + frame[0];
}

TEST(Task, StackHasTheSizeAskedFor) {
  EXPECT_EQ(ThisLoop().StartTask([] { Recurse(4'000); }, std::size_t{16} << 20).Wait(), 0);
  EXPECT_EQ(ThisLoop().StartTask([] { Recurse(200); }).Wait(), 0);
}

TEST(TaskDeathTest, StackThatOverflowsDiesAtItsGuard) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(ThisLoop().StartTask([] { Recurse(1'000'000); }).Wait(), "");
}

// What the loop's own stack throws goes to whoever turns it; in a task that is not the task.
TEST(TaskThrows, GoesOutOfThePumpThatRanIt) {
  int others = 0;
  const Task throwing = ThisLoop().StartTask([] { throw std::runtime_error("task"); });
  const Task other = ThisLoop().StartTask([&] { ++others; });
  EXPECT_THROW(ThisLoop().PumpMessages(), std::runtime_error);
  EXPECT_TRUE(throwing.Done());
  EXPECT_EQ(throwing.Wait(), 0);
  EXPECT_EQ(other.Wait(), 0);
  EXPECT_EQ(others, 1);
}

constexpr milliseconds kLong{600'000};
constexpr std::size_t kNoSuchStack = SIZE_MAX / 4;

std::int32_t Sleep(milliseconds time) { return MessageLoop::ForThisThread().Sleep(time); }

// The simplest of coroutines: begins at once and belongs to its handle.
class Coroutine {
 public:
  struct promise_type {
    Coroutine get_return_object() {
      return Coroutine(std::coroutine_handle<promise_type>::from_promise(*this));
    }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { throw; }
  };

  explicit Coroutine(std::coroutine_handle<> handle) : handle_(handle) {}
  Coroutine(Coroutine&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  ~Coroutine() {
    if (handle_) handle_.destroy();
  }
  bool Done() const { return handle_.done(); }

 private:
  std::coroutine_handle<> handle_;
};

// Calls of every kind of result, and a callback that takes it as it must be taken.
TEST(Async, HandsOverWhatTheCallReturns) {
  std::vector<std::string> told;
  std::string kept = "kept";
  auto owned = std::make_unique<std::string>("owned by the call");
  Async([] { return std::string("a value"); }, [&](std::string text) { told.push_back(text); });
  Async([] { Sleep(milliseconds(1)); }, [&] { told.emplace_back("nothing"); });
  Async([&]() -> std::string& { return kept; },
        [&](std::string& text) { text += " by reference"; });
  Async([owned = std::move(owned)]() mutable { return std::move(owned); },
        [&, key = std::make_unique<int>(1)](std::unique_ptr<std::string> text) {
          told.push_back(*text);
        });
  EXPECT_TRUE(told.empty()) << "inside Async";
  ASSERT_TRUE(PumpUntil([&] { return told.size() == 3; }));
  EXPECT_EQ(told, (std::vector<std::string>{"a value", "owned by the call", "nothing"}));
  EXPECT_EQ(kept, "kept by reference");
}

TEST(Async, EveryCallIsATaskThatEndsByItselfAndIsTold) {
  std::vector<std::int32_t> ends;
  const auto note = [&](std::int32_t end) {
    EXPECT_FALSE(Task::Current()) << "the callback is of the loop";
    ends.push_back(end);
  };
  Async([] { return Sleep(milliseconds(20)); }, note);
  const Task cancelled = Async([] { return Sleep(kLong); }, note);
  Async(
      [] {
        Task::Current().Deadline(milliseconds(0));
        return Sleep(kLong);
      },
      note);
  EXPECT_EQ(cancelled.Error(), 0);
  cancelled.Cancel();
  ASSERT_TRUE(PumpUntil([&] { return ends.size() == 3; }));
  EXPECT_EQ(ends, (std::vector<std::int32_t>{9999, 10002, 0}));
}

// On a thread of its own, where the test is sure to be the one who pumps.
TEST(Async, WhatTheCallThrowsGoesOutOfThePump) {
  std::thread([] {
    bool done = false;
    Async([]() -> int { throw std::runtime_error("from the call"); }, [&](int) { done = true; });
    EXPECT_THROW(PumpUntil([&] { return done; }), std::runtime_error);
    EXPECT_FALSE(done);
  }).join();
}

TEST(Async, TellsWhenItCannotStart) {
  const auto never = [] { ADD_FAILURE() << "run without a stack"; };
  EXPECT_EQ(Async(never, never, kNoSuchStack).Error(), 10055);
  bool refused = false;
  const Coroutine coroutine = [](auto call, bool& badAlloc) -> Coroutine {
    try {
      co_await Await(call, kNoSuchStack);
    } catch (const std::bad_alloc&) {
      badAlloc = true;
    }
  }(never, refused);
  EXPECT_TRUE(refused);
  EXPECT_TRUE(coroutine.Done());
  MessageLoop::ForThisThread().PumpMessages();
}

Coroutine AwaitEveryKind(std::vector<std::string>& told) {
  auto owned = std::make_unique<std::string>("owned");
  auto giveBack = [moved = std::move(owned)]() mutable { return std::move(moved); };
  owned = co_await Await(std::ref(giveBack));
  told.push_back(*owned);
  co_await Await([] { Sleep(milliseconds(1)); });
  std::string& same = co_await Await([&]() -> std::string& { return *owned; });
  told.emplace_back(&same == owned.get() ? "the same" : "another");
  try {
    co_await Await([] { throw std::runtime_error("thrown"); });
  } catch (const std::runtime_error& error) {
    told.emplace_back(error.what());
  }
  told.emplace_back(Task::Current() ? "in the task" : "on the loop");
}

TEST(Await, GivesTheCoroutineWhatTheCallReturnsOrThrows) {
  std::vector<std::string> told;
  const Coroutine coroutine = AwaitEveryKind(told);
  EXPECT_TRUE(told.empty()) << "inside co_await";
  ASSERT_TRUE(PumpUntil([&] { return coroutine.Done(); }));
  EXPECT_EQ(told, (std::vector<std::string>{"owned", "the same", "thrown", "on the loop"}));
}

TEST(Await, CoroutinesWaitSideBySide) {
  std::vector<int> order;
  const auto sleeper = [&order](int number, milliseconds time) -> Coroutine {
    EXPECT_EQ(co_await Await([time] { return Sleep(time); }), 0);
    order.push_back(number);
  };
  const Coroutine slow = sleeper(1, milliseconds(40));
  const Coroutine fast = sleeper(2, milliseconds(5));
  ASSERT_TRUE(PumpUntil([&] { return slow.Done() && fast.Done(); }));
  EXPECT_EQ(order, (std::vector<int>{2, 1}));
}

// Destroyed before its call begins, and while the call waits: nobody is resumed, the call is not
// begun, or ends at once, and what it holds goes with it.
TEST(Await, CoroutineMayBeDestroyedWhileItWaits) {
  for (const bool begun : {false, true}) {
    const auto ends = std::make_shared<std::vector<std::int32_t>>();
    auto coroutine = std::make_unique<Coroutine>([](auto told) -> Coroutine {
      const auto call = [told] {
        told->push_back(-1);
        told->push_back(Sleep(kLong));
      };
      co_await Await(call);
      ADD_FAILURE() << "resumed";
    }(ends));
    ASSERT_TRUE(PumpUntil([&] { return !begun || !ends->empty(); }));
    coroutine.reset();
    ASSERT_TRUE(PumpUntil([&] { return ends.use_count() == 1; }));
    EXPECT_EQ(*ends, begun ? (std::vector<std::int32_t>{-1, 9999}) : std::vector<std::int32_t>{});
  }
}

TEST(Await, EndOfTheThreadEndsTheCallsAndTellsNobody) {
  const auto ends = std::make_shared<std::vector<std::int32_t>>();
  std::thread([ends] {
    const auto call = [ends] { ends->push_back(Sleep(kLong)); };
    Async(call, [] { ADD_FAILURE() << "told"; });
    const Coroutine coroutine = [](auto awaited) -> Coroutine { co_await Await(awaited); }(call);
    MessageLoop::ForThisThread().PumpMessages();
  }).join();
  EXPECT_EQ(*ends, (std::vector<std::int32_t>{9999, 9999}));
  EXPECT_EQ(ends.use_count(), 1);
}

}  // namespace
}  // namespace netro
