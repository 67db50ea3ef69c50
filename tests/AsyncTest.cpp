// Async and Await: blocking calls as tasks, with callbacks and coroutines.
#include <netro/Async.h>

#include <coroutine>
#include <new>

#include "SocketTestKit.h"

namespace netro {
namespace {

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
