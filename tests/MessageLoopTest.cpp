// The message loop: pumping, timers, tasks from other threads, and the descriptor for hosts.
#include <netro/HTTPCls.h>
#include <netro/MailSpool.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SendMailCls.h>
#include <netro/WatchpostCls.h>

#include <ctime>

#include "SocketTestKit.h"
#include "platform/Loop.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

// Empties what earlier cases of this thread have left.
MessageLoop& QuietLoop() {
  MessageLoop& loop = MessageLoop::ForThisThread();
  for (int i = 0; i < 3 || AwaitReadable(loop.LoopFd(), 0); ++i) loop.PumpMessages();
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
  EXPECT_TRUE(AwaitReadable(loop.LoopFd(), 0))
      << "a host that watches the descriptor would miss it";
  loop.PumpMessages();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  EXPECT_FALSE(AwaitReadable(loop.LoopFd(), 0));
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

// On a thread whose loop nobody has asked for its descriptor before.
TEST(MessageLoop, DescriptorBecomesReadableForATimer) {
  std::thread([] {
    MessageLoop& loop = MessageLoop::ForThisThread();
    int ticks = 0;
    const auto timer = loop.SetTimer(5, [&] { ++ticks; });
    ASSERT_NE(timer, 0);
    EXPECT_TRUE(AwaitReadable(loop.LoopFd(), 5000));
    loop.PumpMessages();
    EXPECT_EQ(ticks, 1);
    EXPECT_TRUE(AwaitReadable(loop.LoopFd(), 5000)) << "it ticks again and again";
    loop.KillTimer(timer);
    QuietLoop();
    EXPECT_EQ(ticks, 1);
  }).join();
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

// These look at who turns the loop, so each has a thread and a loop of its own.
struct HostPump : testing::Test {
  static void OnItsThread(const std::function<void(MessageLoop&)>& test) {
    std::thread([&] { test(MessageLoop::ForThisThread()); }).join();
  }
};

TEST_F(HostPump, RunsWhileACallWaitsAndTheLibraryTurnsTheLoop) {
  OnItsThread([](MessageLoop& loop) {
    int turns = 0;
    loop.SetHostPump([&] { ++turns; });
    const auto timer = loop.SetTimer(30, [&] { loop.QuitLoop(); });
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    loop.RunLoop();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    EXPECT_EQ(turns, 0) << "nobody waits";
    const auto used =
        (after.tv_sec - before.tv_sec) * 1'000'000'000 + after.tv_nsec - before.tv_nsec;
    EXPECT_LT(used, 15'000'000) << "it did not sleep";

    const Task task = loop.StartTask([&] { loop.Sleep(seconds(600)); });
    for (int i = 0; i < 3; ++i) loop.PumpMessages();
    EXPECT_EQ(turns, 0) << "the host turns the loop";
    loop.RunLoop();
    EXPECT_GT(turns, 0) << "a task waits in RunLoop";
    loop.KillTimer(timer);
    task.Cancel();
    task.Wait();

    turns = 0;
    loop.Sleep(milliseconds(10));
    EXPECT_GT(turns, 0) << "a call waits outside of tasks";
    loop.SetHostPump(nullptr);
    loop.Sleep(milliseconds(1));
  });
}

// The pump advances the clock: each time by as much as may pass until it is due again.
TEST_F(HostPump, RunsOnceInEachInterval) {
  OnItsThread([](MessageLoop& loop) {
    struct {
      milliseconds interval, advance, sleep;
      int turns;
    } const cases[] = {
        {seconds(1000), seconds(1000), seconds(4500), 5},
        {seconds(1000), milliseconds(0), milliseconds(5), 1},
        {milliseconds(10), seconds(100), seconds(450), 5},
        {milliseconds(0), seconds(100), seconds(450), 5},
        {milliseconds(-5), seconds(100), seconds(450), 5},
    };
    for (const auto& each : cases) {
      int turns = 0;
      const auto pump = [&] {
        ++turns;
        AdvanceClockForTests(each.advance);
      };
      loop.SetHostPump(pump, each.interval);
      EXPECT_EQ(loop.Sleep(each.sleep), 0);
      EXPECT_EQ(turns, each.turns) << each.interval.count();
    }
  });
}

TEST_F(HostPump, EntersItselfOnlyWhenACallWaitsInside) {
  OnItsThread([](MessageLoop& loop) {
    int depth = 0;
    int deepest = 0;
    std::function<void()> inside;
    const auto pump = [&] {
      AdvanceClockForTests(seconds(1));  // due again
      deepest = std::max(deepest, ++depth);
      if (depth == 1) inside();
      --depth;
    };
    loop.SetHostPump(pump);
    const Task task = loop.StartTask([&] { loop.Sleep(seconds(6000)); });
    inside = [&] {
      for (int i = 0; i < 3; ++i) {
        loop.PostTask([] {});
        loop.PumpMessages();
      }
    };
    loop.Sleep(milliseconds(1));
    EXPECT_EQ(deepest, 1) << "a pump alone turns the host no further";
    inside = [&] { loop.Sleep(seconds(2)); };
    loop.Sleep(milliseconds(1));
    EXPECT_EQ(deepest, 2);
    task.Cancel();
    task.Wait();
  });
}

TEST_F(HostPump, MayThrow) {
  OnItsThread([](MessageLoop& loop) {
    int turns = 0;
    const auto pump = [&] {
      AdvanceClockForTests(seconds(1));
      if (++turns == 1) throw std::runtime_error("host");
    };
    loop.SetHostPump(pump);
    EXPECT_THROW(loop.Sleep(seconds(5)), std::runtime_error);
    EXPECT_EQ(loop.Sleep(seconds(1)), 0);
    EXPECT_GT(turns, 1);
  });
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
  EXPECT_TRUE(InChild([&] {
    inherited.Disconnect();  // must not take the parent's socket off the parent's set
    return MessageLoop::ForThisThread().LoopFd() != before;
  }));
  Recorder recorder(inherited);
  SocketCls client;
  ASSERT_TRUE(client.Connect("127.0.0.1", inherited.LocalPort()));
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("ConnectionRequest"); }));
}

TEST(MessageLoop, IsUsedByOneThreadAtATime) {
  std::unique_ptr<SocketCls> moved;
  std::thread([&] { moved = std::make_unique<SocketCls>(); }).join();
  EXPECT_EQ(moved->Listen("127.0.0.1"), !Task::Current())
      << "made elsewhere, but used only here; a task sleeps in its own loop alone";

  MessageLoop& loop = MessageLoop::ForThisThread();
  SocketCls socket;
  HTTPCls http;
  QueryDNSCLS dns;
  const auto elsewhere = [&](const std::function<void()>& call) {
    loop.PostTask([&] { std::thread(call).join(); });
    loop.PumpMessages();
  };
  elsewhere([&] {
    bool timeout = false;
    EXPECT_EQ(socket.SendData("x"), 10180);
    EXPECT_EQ(socket.QueueData("x"), 10180);
    EXPECT_FALSE(socket.Listen("127.0.0.1"));
    EXPECT_TRUE(http.HTTPQuery(timeout).starts_with("Wrong Thread."));
    EXPECT_EQ(dns.QueryDNS(), 10180);
    EXPECT_EQ(loop.StartTask([] {}).Error(), 10180);
    loop.PostTask([] {});
    loop.RunLoop();
    socket.StopWaiting();
    EXPECT_EQ(MessageLoop::ThreadErr(), 10180);
    SocketCls own;
    EXPECT_EQ(own.SendData("x"), 10057);
    EXPECT_EQ(MessageLoop::ThreadErr(), 0);
  });
  SendMailCls mail;
  MailSpool spool;
  WatchpostCls watchpost;
  const std::function<void()> calls[] = {
      [&] { socket.SocketIsBusy(true); },
      [&] { socket.RemoveSocket(); },
      [&] { socket.Connect("127.0.0.1", 1); },
      [&] { mail.NewTextMsg("s", "a@b.test", "c@d.test", "text"); },
      [&] { mail.AddHeader("X-Test", "1"); },
      [&] { mail.AddAttachmentFromBuffer("bytes", "name"); },
      [&] { mail.SaveMessage("/dev/null"); },
      [&] { spool.List(); },
      [&] { spool.Remove("id"); },
      [&] { spool.NextTry(); },
      [&] { watchpost.HostCount(); },
      [&] { watchpost.HostAt(0); },
      [&] { watchpost.PastAt(0); },
      [&] { watchpost.MailsWaiting(); },
      [&] { watchpost.ReportsUntried(); },
      [&] { loop.PumpMessages(); },
      [&] { loop.QuitLoop(); },
      [&] { loop.Sleep(milliseconds(1)); },
      [&] { loop.SetTimer(1, [] {}); },
      [&] { loop.KillTimer(1); },
      [&] { loop.SetHostPump([] {}); }};
  for (const auto& call : calls) {
    elsewhere([&] {
      call();
      EXPECT_EQ(MessageLoop::ThreadErr(), 10180) << &call - calls;
    });
  }
  EXPECT_EQ(http.LastErr(), 0) << "it belongs to this thread's calls";
  EXPECT_EQ(socket.State(), sockClosed);
  loop.CheckThread(false);
  elsewhere([&] { EXPECT_EQ(socket.SendData("x"), 10057) << "not looked at"; });
  loop.CheckThread(true);
}

TEST(MessageLoop, WakesAreNeverLost) {
  const std::shared_ptr<Loop> loop = Loop::ForThread();
  QuietLoop();
  constexpr int kRounds = 20'000;
  std::atomic<int> seen{0};
  std::thread::id ranOn;
  std::thread poster([&] {
    EXPECT_NE(Loop::ForThread(), loop) << "each thread has its own";
    for (int i = 0; i < kRounds; ++i) {
      loop->PostTask([&] {
        ++seen;
        ranOn = std::this_thread::get_id();
      });
    }
  });
  while (seen < kRounds) {
    loop->PumpMessages();
    if (seen < kRounds) loop->Block(TimePoint::max());
  }
  poster.join();
  EXPECT_EQ(seen, kRounds);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

}  // namespace
}  // namespace netro
