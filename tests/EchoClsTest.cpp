// EchoCls on loopback: many requests at once, how they end, and what a handler may do.
#include <netro/Task.h>

#include "EchoKit.h"

namespace netro {
namespace {

std::string Loopback(int number) {
  return "127.1." + std::to_string(number / 250) + "." + std::to_string(1 + number % 250);
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(EchoWithoutSocket, AddressesThatAreNone) {
  EchoCls echo;
  EXPECT_EQ(echo.SocketUsed(), EchoSocketNone);
  for (const char* ip : {"", "localhost", "1.2.3.256", "::g", "[::1]", "fe80::1%nowhere"}) {
    EXPECT_EQ(echo.Send(ip), 0) << ip;
    EXPECT_EQ(echo.LastErr(), 10022);
    EXPECT_EQ(echo.LastErrMsg(), ICMPCls().GetICMPError(10022));
  }
  echo.Cancel(0);
  echo.Cancel(77);
  EXPECT_EQ(echo.Pending(), 0);
  EXPECT_EQ(echo.SocketUsed(), EchoSocketNone);
}

TEST(EchoWithoutSocket, WithoutPermission) {
  const auto without = WithoutRawSockets();
  if (EchoIsPermitted()) GTEST_SKIP() << "the system allows every program an echo";
  EchoCls echo;
  for (const char* ip : {"127.0.0.1", "::1"}) {
    EXPECT_EQ(echo.Send(ip), 0) << ip;
    EXPECT_EQ(echo.LastErr(), -10001);
    EXPECT_EQ(echo.LastErrMsg(), "Can not create ICMP handle");
  }
  EXPECT_EQ(echo.SocketUsed(), EchoSocketNone);
}

struct Echoes : testing::Test {
  void SetUp() override {
    if (!EchoIsPermitted()) GTEST_SKIP() << "the system allows this program no echo";
    echo_->Events(&replies_);
  }

  bool PumpUntilReplies(std::size_t count) {
    return PumpUntil([&] { return replies_.seen.size() >= count; });
  }

  std::unique_ptr<EchoCls> echo_ = std::make_unique<EchoCls>();
  EchoSink replies_;
};

TEST_F(Echoes, AThousandTargetsThroughOneDescriptor) {
  EXPECT_NE(echo_->Send("127.0.0.1"), 0);
  EXPECT_EQ(echo_->LastErrMsg(), "");
  ASSERT_TRUE(PumpUntilReplies(1));
  EXPECT_NE(echo_->SocketUsed(), EchoSocketNone);
  const auto descriptors = OpenDescriptors();
  replies_.seen.clear();
  std::map<std::int32_t, std::string> asked;
  const auto before = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) asked[echo_->Send(Loopback(i), 0, i % 100)] = Loopback(i);
  EXPECT_EQ(asked.size(), 1000u) << "each has an id of its own";
  EXPECT_FALSE(asked.contains(0));
  EXPECT_TRUE(replies_.seen.empty()) << "an event came inside the call that started it";
  EXPECT_EQ(echo_->Pending(), 1000);
  EXPECT_EQ(OpenDescriptors(), descriptors);
  std::this_thread::sleep_for(milliseconds(400));
  ASSERT_TRUE(PumpUntilReplies(1000));
  const std::chrono::microseconds all = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - before);
  EXPECT_EQ(echo_->Pending(), 0);
  for (const EchoSeen& reply : replies_.seen) {
    EXPECT_EQ(reply.host, asked[reply.id]);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.ttl, 64);
    EXPECT_GE(reply.microSeconds, 0);
    EXPECT_LE(reply.microSeconds, all.count());
    asked.erase(reply.id);
  }
  EXPECT_TRUE(asked.empty());
  const auto least = std::ranges::min(replies_.seen, {}, &EchoSeen::microSeconds).microSeconds;
  EXPECT_LT(least, 200'000) << "they count until they came, not until they were read";
}

// Some of the replies are read while others are sent, and nothing more may come after them.
TEST_F(Echoes, AnyNumberAtOnce) {
  for (const int count : {1, 2, 63, 64, 65, 128, 20'000}) {
    echo_ = std::make_unique<EchoCls>();
    echo_->Events(&replies_);
    replies_.seen.clear();
    for (int i = 0; i < count; ++i) echo_->Send("127.0.0.1");
    EXPECT_TRUE(PumpUntilReplies(static_cast<std::size_t>(count))) << count;
    for (const EchoSeen& reply : replies_.seen) ASSERT_EQ(reply.status, 0) << count;
  }
}

// An answer does not stop the clock of the others, and the last time-out wakes a sleeping host.
TEST_F(Echoes, SilenceEndsInTheOrderOfTheTimes) {
  const std::int32_t late = echo_->Send(kSilent, 0, 32, 3000);
  const std::int32_t soon = echo_->Send(kSilent, 0, 32, 1000);
  const std::int32_t good = echo_->Send("127.0.0.1", 0, 32, 500);
  const std::int32_t middle = echo_->Send(kSilent, 0, 32, 2000);
  EXPECT_TRUE(replies_.seen.empty());
  ASSERT_TRUE(PumpUntilReplies(1));
  AdvanceClockForTests(milliseconds(1000));
  ASSERT_TRUE(PumpUntilReplies(2));
  EXPECT_EQ(replies_.Ids(), (std::vector{good, soon}));
  AdvanceClockForTests(milliseconds(1980));
  ASSERT_TRUE(PumpUntilReplies(4));
  EXPECT_EQ(replies_.Ids(), (std::vector{good, soon, middle, late}));
  replies_.seen.erase(replies_.seen.begin());
  for (const EchoSeen& reply : replies_.seen) {
    EXPECT_EQ(reply.host, "");
    EXPECT_EQ(reply.status, 11010);
    EXPECT_EQ(reply.microSeconds, 0);
    EXPECT_EQ(reply.ttl, 0);
  }
}

// Some of the replies are read while others are sent, some not.
TEST_F(Echoes, WhatCameWhileTheHostWasBusyIsNoSilence) {
  for (int i = 0; i < 200; ++i) echo_->Send(Loopback(i), 0, 32, 1000);
  const std::int32_t silent = echo_->Send(kSilent, 0, 32, 1000);
  AdvanceClockForTests(milliseconds(2000));
  ASSERT_TRUE(PumpUntilReplies(201));
  for (const EchoSeen& reply : replies_.seen)
    EXPECT_EQ(reply.status, reply.id == silent ? 11010 : 0) << reply.id;
}

TEST_F(Echoes, RefusalsToSendAreRepliesToo) {
  const std::map<std::int32_t, std::int32_t> expected = {
      {echo_->Send("127.255.255.255"), 11050},
      {echo_->Send("127.0.0.1", 256), 11050},
      {echo_->Send("127.0.0.1", 0, 65'508), 11009},
      {echo_->Send("127.0.0.1", 255, 65'507), 0},
      {echo_->Send("127.0.0.1", 0, -1), 0},
      {echo_->Send("::1", 256), 11050},
      {echo_->Send("::1", 0, 65'508), 11009},
      {echo_->Send("::1", 255, 65'507), 0},
      {echo_->Send("fe80::1"), 11050}};
  EXPECT_EQ(expected.size(), 9u);
  EXPECT_TRUE(replies_.seen.empty());
  ASSERT_TRUE(PumpUntilReplies(9));
  for (const EchoSeen& reply : replies_.seen) {
    EXPECT_EQ(reply.status, expected.at(reply.id)) << reply.id;
    EXPECT_EQ(reply.host.empty(), reply.status != 0);
  }
  for (int i = 0; i < 66'000; ++i)
    ASSERT_NE(echo_->Send("127.255.255.255"), 0) << "they take no sequence number for long";
}

TEST_F(Echoes, CancelledRequestsHaveNoReply) {
  std::vector<std::int32_t> ids;
  for (int i = 0; i < 200; ++i) ids.push_back(echo_->Send(Loopback(i)));
  for (int i = 0; i < 200; i += 2) echo_->Cancel(ids[static_cast<std::size_t>(i)]);
  EXPECT_EQ(echo_->Pending(), 100);
  // The last one goes when the first answers.
  replies_.hook = [&](std::int32_t) { echo_->Cancel(ids.back()); };
  ASSERT_TRUE(PumpUntil([&] { return echo_->Pending() == 0; }));
  std::vector<std::int32_t> expected;
  for (std::size_t i = 1; i < 199; i += 2) expected.push_back(ids[i]);
  EXPECT_EQ(replies_.Ids(), expected);
}

TEST_F(Echoes, TheHandlerMayWaitForTheOthers) {
  for (int i = 0; i < 100; ++i) echo_->Send(Loopback(i));
  ICMPCls icmp;
  replies_.hook = [&](std::int32_t) {
    if (replies_.seen.size() > 1) return;
    EXPECT_TRUE(PumpUntilReplies(100));
    EXPECT_GE(icmp.PingHost("127.0.0.1"), 0);
  };
  ASSERT_TRUE(PumpUntilReplies(100));

  replies_.seen.clear();
  for (int i = 0; i < 100; ++i) echo_->Send(kSilent, 0, 32, 100);
  AdvanceClockForTests(milliseconds(100));
  ASSERT_TRUE(PumpUntilReplies(100)) << "those that are past their time";
}

TEST_F(Echoes, MayBeDeletedByTheHandlerAndWithRequestsInFlight) {
  for (const char* host : {"127.0.0.1", kSilent, "127.255.255.255", ""}) {
    echo_ = std::make_unique<EchoCls>();
    echo_->Events(&replies_);
    replies_.seen.clear();
    replies_.hook = [&](std::int32_t) { echo_.reset(); };
    const bool inFlight = *host == 0;
    for (int i = 0; i < 40; ++i)
      echo_->Send(inFlight ? kSilent : host, 0, 32, host == kSilent ? 0 : 5000);
    if (inFlight) echo_.reset();
    ASSERT_TRUE(PumpUntilReplies(inFlight ? 0 : 1)) << host;
    AdvanceClockForTests(milliseconds(6000));
    MessageLoop::ForThisThread().PumpMessages();
    EXPECT_EQ(replies_.seen.size(), inFlight ? 0u : 1u) << host;
  }
}

// A raw socket hears the replies to all others: with one for each call, a reply was read as often
// as there were calls.
TEST_F(Echoes, AllObjectsOfAThreadShareOneSocket) {
  constexpr int kCalls = 100;
  MessageLoop& loop = MessageLoop::ForThisThread();
  loop.PumpMessages();
  const auto before = OpenDescriptors();
  int answered = 0, ended = 0;
  std::vector<Task> tasks;
  for (int i = 0; i < kCalls; ++i) {
    tasks.push_back(loop.StartTask([&, i] {
      ICMPCls icmp;
      answered += icmp.PingHost(Loopback(i)) >= 0;
      icmp.PingTimeout(60'000);
      EXPECT_EQ(icmp.PingHost(kSilent), -9999);
      ++ended;
    }));
  }
  echo_->Send("127.0.0.1");
  ASSERT_TRUE(PumpUntil([&] { return answered == kCalls && replies_.seen.size() == 1; }));
  EXPECT_EQ(OpenDescriptors(), before + 1);
  for (int i = 0; i < kCalls; i += 2) tasks[static_cast<std::size_t>(i)].Cancel();
  ASSERT_TRUE(PumpUntil([&] { return ended == kCalls / 2; }));
  echo_.reset();
  EXPECT_EQ(OpenDescriptors(), before + 1) << "others still wait";
  for (const Task& task : tasks) task.Cancel();
  ASSERT_TRUE(PumpUntil([&] { return ended == kCalls; }));
  EXPECT_EQ(OpenDescriptors(), before) << "nobody waits";
}

// Answered ones are kept for their duplicates only as long as there is room.
TEST_F(Echoes, WhatIsAnsweredTakesNoRoom) {
  echo_->Duplicates(true);
  constexpr std::size_t kAtOnce = 1000;
  for (int round = 0; round < 67; ++round) {
    replies_.seen.clear();
    for (std::size_t i = 0; i < kAtOnce; ++i)
      ASSERT_NE(echo_->Send("127.0.0.1", 0, 0, 3'600'000), 0);
    ASSERT_TRUE(PumpUntilReplies(kAtOnce)) << round;
    for (const EchoSeen& reply : replies_.seen) ASSERT_EQ(reply.status, 0) << round;
  }
}

TEST_F(Echoes, SequenceNumbersAreTheLimit) {
  for (int i = 0; i < 65'536; ++i) ASSERT_NE(echo_->Send(kSilent, 0, 0, 60'000), 0) << i;
  EXPECT_EQ(echo_->Send(kSilent), 0);
  EXPECT_EQ(echo_->LastErr(), -11006);
  EXPECT_EQ(echo_->LastErrMsg(), "No Resources Available");
  EXPECT_GE(ICMPCls().PingHost("127.0.0.1"), 0) << "others have a socket that is not full";
  echo_->Cancel(4711);
  const std::int32_t next = echo_->Send("127.0.0.1");
  EXPECT_GT(next, 65'536) << "ids are not used again";
  EXPECT_EQ(next % 65'536, 4711) << "the one sequence number that is free";
  ASSERT_TRUE(PumpUntilReplies(1));
  EXPECT_EQ(replies_.Ids(), (std::vector{next}));
}

}  // namespace
}  // namespace netro
