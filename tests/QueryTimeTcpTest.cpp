// QueryTimeCLS over TCP, where SNTP's port is only named to a proxy; and over UDP on port 123 of an
// address of the test's own. Where that may not be had, the test low_ports runs these.
#include <netro/QueryTimeCLS.h>
#include <netro/testkit/TimeReply.h>

#include <semaphore>

#include "DnsTestKit.h"
#include "Environment.h"
#include "support/DateText.h"

namespace netro {
namespace {

using From = DatagramServer::From;
using Replies = DatagramServer::Replies;

std::string Reply(const std::string& request, std::uint32_t stamp = kStampOf2000) {
  return TimeReply().Stratum(1).Originate(testkit::TransmitOf(request)).Transmit(stamp).Bytes();
}

struct QueryTimeTcp : testing::Test {
  QueryTimeTcp() {
    time_.UseUDP(false);
    time_.Server("127.0.0.1");
    time_.Timeout(10);
  }

  bool Ask(const Script& script) {
    BytesServer server({script});
    time_.Port(server.Port());
    const bool result = time_.QueryTime();
    received_ = server.Received(0);
    return result;
  }

  QueryTimeCLS time_;
  std::string received_;
};

TEST_F(QueryTimeTcp, ABareConnectionAsksAndFourBytesMayComeInAnyPieces) {
  const std::vector<std::vector<std::size_t>> kCuts = {{}, {1}, {2}, {3}, {1, 2, 3}};
  for (const auto& cuts : kCuts) {
    EXPECT_TRUE(Ask({testkit::Send(Big32(kStampOf2000), cuts)}));
    EXPECT_EQ(received_, "");
    EXPECT_EQ(DateToText(time_.DateTime()), k2000);
    EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
    EXPECT_GT(time_.SNTPDifference(), 800'000'000);
    EXPECT_EQ(time_.LastErr(), 0);
  }
}

// Any text has four bytes, a daytime server's for one.
TEST_F(QueryTimeTcp, WhatCameUntilTheCloseIsJudgedByItsLength) {
  const std::string text = "Sun Nov 22 18:00:00 2026\r\n" + std::string(100, 'x');
  for (const std::size_t size : {0u, 1u, 3u, 4u, 5u, 26u, 47u, 48u, 49u, 126u})
    for (const std::vector<std::size_t>& cuts : {std::vector<std::size_t>(), {4}}) {
      SCOPED_TRACE(size);
      if (!cuts.empty() && size <= 4) continue;
      const bool whole = size == 4 || size == 48;
      EXPECT_EQ(Ask({testkit::Send(text.substr(0, size), cuts), testkit::Close()}), whole);
      EXPECT_EQ(time_.LastErr(), whole ? 0 : 100003);
      EXPECT_EQ(time_.DateTime() == 0, !whole);
    }
  EXPECT_FALSE(Ask({testkit::Send(Big32(0)), testkit::Close()}));
  EXPECT_EQ(time_.LastErr(), 100002);
}

TEST_F(QueryTimeTcp, AServerThatDoesNotCloseIsGivenASecond) {
  BytesServer server({{testkit::Send(Big32(kStampOf2000)), testkit::Stay()}});
  time_.Port(server.Port());
  time_.Timeout(10'000);  // more than the clock will run
  const RunningClock clock([&] { return server.Connections() > 0; });
  const Takes time(seconds(1));
  EXPECT_TRUE(time_.QueryTime()) << time_.LastErrMsg();
}

TEST_F(QueryTimeTcp, AResetIsItsNumber) {
  for (std::size_t size = 0; size < 3; ++size) {
    EXPECT_FALSE(Ask({testkit::Send("123"s.substr(0, size + 1), {size}), testkit::Reset()}));
    EXPECT_EQ(time_.LastErr(), 10054) << size;
    EXPECT_EQ(time_.DateTime(), 0);
  }
}

// The connection and its data are told at once; the round trip must not begin in 1970.
TEST_F(QueryTimeTcp, AServerMayAnswerBeforeTheConnectionIsNoticed) {
  for (const std::string& reply : {Big32(kStampOf2000), "12"s}) {
    std::binary_semaphore sent(0);
    testkit::LoopbackServer server([&](Connection& connection, std::size_t) {
      connection.Send(reply);
      connection.HalfClose();
      sent.release();
      std::string rest;
      connection.ReadToEnd(rest);
    });
    time_.Port(server.Port());
    bool waited = false;
    MessageLoop::ForThisThread().SetHostPump([&] {
      if (!waited) waited = sent.try_acquire_for(seconds(5));
    });
    EXPECT_EQ(time_.QueryTime(), reply.size() == 4);
    MessageLoop::ForThisThread().SetHostPump(nullptr);
    EXPECT_TRUE(waited);
    EXPECT_EQ(time_.LastErr(), reply.size() == 4 ? 0 : 100003);
    EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
    EXPECT_EQ(DateToText(time_.DateTime()) == k2000, reply.size() == 4);
  }
}

// A SOCKS 4 proxy that is the time server itself, whatever port it is asked for.
struct QueryTimeSntpTcp : QueryTimeTcp {
  bool AskSntp(const std::function<std::string(const std::string& request)>& reply,
               const std::vector<std::size_t>& cuts = {}) {
    testkit::LoopbackServer server([&](Connection& connection, std::size_t) {
      std::string received;
      while (received.size() < 9 && connection.Read(received)) {
      }
      connection.Send("\0\x5A\0\0\0\0\0\0"s);
      while (received.size() < 9 + 48 && connection.Read(received)) {
      }
      connection.SendCut(reply(received.substr(9)), cuts);
      connection.HalfClose();
      connection.ReadToEnd(received);
      EXPECT_EQ(received.size(), 9u + 48);
    });
    time_.Port(123);
    time_.ProxyType(TimeProxySocks4);
    time_.ProxyURL("127.0.0.1");
    time_.ProxyPort(server.Port());
    return time_.QueryTime();
  }
};

TEST_F(QueryTimeSntpTcp, ReplyInAnyPieces) {
  for (std::size_t cut = 1; cut < 48; ++cut) {
    EXPECT_TRUE(AskSntp([](const auto& request) { return Reply(request); }, {cut})) << cut;
    EXPECT_EQ(time_.SNTPStratum(), SNTPStratumEnum::PrimaryReference) << cut;
    EXPECT_GT(time_.DateTime(), 36'525) << cut;
  }
}

TEST_F(QueryTimeSntpTcp, ACloseLeavesWhatCameToItsLength) {
  for (std::size_t size = 0; size <= 48; ++size) {
    SCOPED_TRACE(size);
    // The first four bytes are read as seconds when nothing follows.
    const bool good = AskSntp([=](const auto& request) { return Reply(request).substr(0, size); });
    EXPECT_EQ(good, size == 4 || size == 48);
    EXPECT_EQ(time_.LastErr(), good ? 0 : 100003);
    EXPECT_EQ(time_.DateTime() == 0, !good);
  }
}

TEST_F(QueryTimeSntpTcp, AReplyToAnotherQuestionDoesNotCount) {
  const auto foreign = [](std::string request) {
    request[43] = static_cast<char>(request[43] ^ 1);
    return Reply(request, kStampOf2000 + 99);
  };
  const auto both = [&](const std::string& request) { return foreign(request) + Reply(request); };
  EXPECT_FALSE(AskSntp(foreign));
  EXPECT_EQ(time_.LastErr(), 100003);
  for (const std::size_t cut : {10u, 48u, 60u}) {
    EXPECT_FALSE(AskSntp(both, {cut}));
    EXPECT_EQ(time_.LastErr(), 100003);
  }
}

// Seconds since 1900 of this system's clock.
std::uint32_t SecondsNow() {
  const auto since1970 = std::chrono::floor<seconds>(SystemTime()).time_since_epoch();
  return static_cast<std::uint32_t>(since1970.count() + testkit::kTimeOf1970);
}

struct QueryTimeSntp : testing::Test {
  void SetUp() override {
    if (!testkit::ServeOnOwnAddress([](const auto&) { return Replies(); }, 123))
      GTEST_SKIP() << "port 123 of 127.0.0.0/8 may not be used here";
    time_.Timeout(5);
  }

  bool Ask(const DatagramServer::Answer& answer) {
    server_ = testkit::ServeOnOwnAddress(answer, 123);
    if (!server_) return false;
    time_.Server(server_->Ip());
    return time_.QueryTime();
  }

  std::unique_ptr<DatagramServer> server_;
  QueryTimeCLS time_;  // on its default port
};

TEST_F(QueryTimeSntp, RequestOnTheWire) {
  constexpr std::uint32_t kOffset = 20'700;
  const TimeZone zone("NPT-5:45");
  std::set<std::string> fractions;
  for (const std::int32_t version : {3, 4})
    for (const bool random : {false, true, true, true, true}) {
      time_.SNTPVersion(version);
      time_.SNTPRandomFraction(random);
      const std::uint32_t before = SecondsNow();
      EXPECT_TRUE(Ask([](const auto& request) -> Replies { return {Reply(request)}; }));
      const std::string request = server_->Received().at(0);
      ASSERT_EQ(request.size(), 48u);
      EXPECT_EQ(request[0], version == 3 ? 27 : 35);
      EXPECT_EQ(request.substr(1, 39), std::string(39, '\0'));
      EXPECT_GE(request.substr(40, 4), Big32(before + kOffset));
      EXPECT_LE(request.substr(40, 4), Big32(SecondsNow() + kOffset));
      EXPECT_TRUE(random || request.substr(44) == std::string(4, '\0'));
      fractions.insert(request.substr(44));
    }
  EXPECT_GT(fractions.size(), 6u);
}

TEST_F(QueryTimeSntp, DifferenceIsToLocalTimeAndOffsetToUtc) {
  const TimeZone zone("<+02>-2");
  constexpr double kTolerance = 5;  // the server tells whole seconds, the machine may be busy
  for (const int ahead : {0, 100, -100}) {
    EXPECT_TRUE(Ask([=](const auto& request) -> Replies {
      const std::uint32_t now = SecondsNow() + static_cast<std::uint32_t>(ahead);
      return {Reply(request, now).replace(32, 4, Big32(now))};
    }));
    EXPECT_NEAR(time_.SNTPDifference(), 7200 - ahead, kTolerance);
    EXPECT_NEAR(time_.SNTPOffset(), ahead, kTolerance);
    EXPECT_NEAR((time_.DateTime() - WallClock()) * 86'400, ahead, kTolerance);
  }
}

TEST_F(QueryTimeSntp, OnlyAReplyToTheRequestCounts) {
  const auto others = [](const std::string& request) -> Replies {
    std::string other = request;
    other[47] = 1;
    return {Reply(other, 1),
            Reply(std::string(48, '\0'), 1),
            {Reply(request, 1), From::kOtherPort},
            {Reply(request, 1), From::kOtherAddress}};
  };
  EXPECT_TRUE(Ask([&](const std::string& request) {
    Replies all = others(request);
    all.push_back(Reply(request));
    return all;
  }));
  EXPECT_NEAR(time_.DateTime(), *TextToDate(k2000), 5.0 / 86'400);

  const RunningClock clock([&] { return server_->Count() > 0; });
  const Takes time(seconds(5));
  EXPECT_FALSE(Ask(others));
  EXPECT_EQ(time_.LastErr(), 10002);
}

}  // namespace
}  // namespace netro
