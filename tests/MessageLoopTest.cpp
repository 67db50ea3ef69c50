// The message loop: pumping, timers, tasks from other threads, and the descriptor for hosts.
#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "SocketTestKit.h"
#include "platform/Clock.h"
#include "platform/Loop.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

bool Readable(int descriptor, int timeoutMs) {
  pollfd entry{descriptor, POLLIN, 0};
  return poll(&entry, 1, timeoutMs) == 1;
}

// Empties what earlier cases of this thread have left.
MessageLoop& QuietLoop() {
  MessageLoop& loop = MessageLoop::ForThisThread();
  while (Readable(loop.LoopFd(), 0)) loop.PumpMessages();
  return loop;
}

TEST(MessageLoop, PumpRunsWhatIsQueuedOnEntryAndLeavesTheRest) {
  MessageLoop& loop = QuietLoop();
  std::vector<int> order;
  loop.PostTask([&] {
    order.push_back(1);
    loop.PostTask([&] { order.push_back(3); });
  });
  loop.PostTask([&] { order.push_back(2); });
  loop.PumpMessages();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_TRUE(Readable(loop.LoopFd(), 0)) << "a host that watches the descriptor would miss it";
  loop.PumpMessages();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  EXPECT_FALSE(Readable(loop.LoopFd(), 0));
}

TEST(MessageLoop, TaskThatPostsItselfDoesNotStarveOthers) {
  MessageLoop& loop = QuietLoop();
  bool stop = false;
  bool ticked = false;
  std::function<void()> again = [&] {
    if (!stop) loop.PostTask(again);
  };
  loop.PostTask(again);
  const auto timer = loop.SetTimer(1, [&] {
    ticked = true;
    loop.QuitLoop();
  });
  loop.RunLoop();
  loop.KillTimer(timer);
  stop = true;
  EXPECT_TRUE(ticked);
  QuietLoop();
}

TEST(MessageLoop, TaskFromAnotherThreadWakesASleepingLoop) {
  MessageLoop& loop = QuietLoop();
  std::thread::id ranOn;
  std::thread poster([&] {
    loop.PostTask([&] {
      ranOn = std::this_thread::get_id();
      loop.QuitLoop();
    });
  });
  loop.RunLoop();
  poster.join();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(MessageLoop, DescriptorBecomesReadableForATimer) {
  MessageLoop& loop = QuietLoop();
  int ticks = 0;
  const auto timer = loop.SetTimer(5, [&] { ++ticks; });
  ASSERT_NE(timer, 0);
  EXPECT_TRUE(Readable(loop.LoopFd(), 5000));
  loop.PumpMessages();
  EXPECT_EQ(ticks, 1);
  EXPECT_TRUE(Readable(loop.LoopFd(), 5000)) << "it ticks again and again";
  loop.KillTimer(timer);
  QuietLoop();
  EXPECT_EQ(ticks, 1);
}

TEST(MessageLoop, MissedTicksAreNotMadeUpFor) {
  MessageLoop& loop = QuietLoop();
  int ticks = 0;
  const auto timer = loop.SetTimer(1000, [&] { ++ticks; });
  AdvanceClockForTests(milliseconds(10'500));
  for (int i = 0; i < 5; ++i) loop.PumpMessages();
  EXPECT_EQ(ticks, 1);
  AdvanceClockForTests(milliseconds(999));
  loop.PumpMessages();
  EXPECT_LE(ticks, 2);
  AdvanceClockForTests(milliseconds(1));
  loop.PumpMessages();
  EXPECT_EQ(ticks, 2);
  loop.KillTimer(timer);
}

TEST(MessageLoop, TimerMayKillItselfAndOthers) {
  MessageLoop& loop = QuietLoop();
  int ticks = 0;
  std::int32_t first = 0;
  std::int32_t second = 0;
  const auto killBoth = [&] {
    ++ticks;
    loop.KillTimer(first);
    loop.KillTimer(second);
  };
  first = loop.SetTimer(1, killBoth);
  second = loop.SetTimer(1, killBoth);
  AdvanceClockForTests(milliseconds(10));
  loop.PumpMessages();
  AdvanceClockForTests(milliseconds(10));
  loop.PumpMessages();
  EXPECT_EQ(ticks, 1);
  loop.KillTimer(12345);
}

TEST(MessageLoop, QuitLoopEndsTheInnermostRunOnly) {
  MessageLoop& loop = QuietLoop();
  loop.QuitLoop();  // without a running loop it must not poison the next
  std::vector<int> order;
  loop.PostTask([&] {
    loop.PostTask([&] { loop.QuitLoop(); });
    loop.RunLoop();
    order.push_back(1);
    loop.PostTask([&] {
      order.push_back(2);
      loop.QuitLoop();
    });
  });
  loop.RunLoop();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(MessageLoop, HostPumpIsForBlockingCallsOnly) {
  MessageLoop& loop = QuietLoop();
  int turns = 0;
  loop.SetHostPump([&] { ++turns; });
  const auto timer = loop.SetTimer(30, [&] { loop.QuitLoop(); });
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
  loop.RunLoop();
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
  EXPECT_EQ(turns, 0);
  const auto used = (after.tv_sec - before.tv_sec) * 1'000'000'000 + after.tv_nsec - before.tv_nsec;
  EXPECT_LT(used, 15'000'000) << "it did not sleep";
  loop.KillTimer(timer);
  loop.SetHostPump(nullptr);
}

TEST(MessageLoop, EndOfAThreadLetsGoOfWhatItWasGiven) {
  auto owned = std::make_shared<int>(1);
  std::thread([&] {
    MessageLoop& loop = MessageLoop::ForThisThread();
    loop.SetTimer(1000, [owned] {});
    loop.SetHostPump([owned] {});
    loop.PostTask([owned] {});
  }).join();
  EXPECT_EQ(owned.use_count(), 1);
}

TEST(MessageLoop, ChildOfAForkHasItsOwn) {
  SocketCls inherited;
  ASSERT_TRUE(inherited.Listen("127.0.0.1"));
  const int before = MessageLoop::ForThisThread().LoopFd();
  const pid_t child = fork();
  if (child == 0) {
    inherited.Disconnect();  // must not take the parent's socket off the parent's set
    _exit(MessageLoop::ForThisThread().LoopFd() != before ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  Recorder recorder(inherited);
  SocketCls client;
  ASSERT_TRUE(client.Connect("127.0.0.1", inherited.LocalPort()));
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("ConnectionRequest"); }));
}

TEST(MessageLoop, EachThreadHasItsOwn) {
  MessageLoop* other = nullptr;
  std::thread([&] { other = &MessageLoop::ForThisThread(); }).join();
  EXPECT_NE(other, &MessageLoop::ForThisThread());
  EXPECT_EQ(&MessageLoop::ForThisThread(), &MessageLoop::ForThisThread());
}

TEST(MessageLoop, WakesAreNeverLost) {
  const std::shared_ptr<Loop> loop = Loop::ForThread();
  QuietLoop();
  constexpr int kRounds = 20'000;
  std::atomic<int> seen{0};
  std::thread poster([&] {
    for (int i = 0; i < kRounds; ++i) loop->PostTask([&] { ++seen; });
  });
  while (seen < kRounds) {
    loop->PumpMessages();
    if (seen < kRounds) loop->Block(TimePoint::max());
  }
  poster.join();
  EXPECT_EQ(seen, kRounds);
}

}  // namespace
}  // namespace netro
