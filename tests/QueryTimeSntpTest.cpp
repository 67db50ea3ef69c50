// QueryTimeCLS over UDP on port 123, which makes it speak SNTP. The server stands on an address of
// 127.0.0.0/8 of the test's own. Where the port may not be had, these tests are skipped; the test
// low_ports then runs them in a network namespace.

#include <gtest/gtest.h>
#include <netro/QueryTimeCLS.h>

#include <set>

#include "DnsTestKit.h"
#include "TimeZone.h"
#include "platform/Clock.h"
#include "support/DateText.h"
#include "tests/peers/DatagramServer.h"
#include "tests/peers/TimeReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::Big32;
using peers::DatagramServer;
using peers::k2000;
using peers::kStampOf2000;
using peers::TimeReply;
using std::chrono::seconds;
using From = DatagramServer::From;
using Replies = DatagramServer::Replies;

std::unique_ptr<DatagramServer> OnPort123(const DatagramServer::Answer& answer) {
  return peers::ServeOnOwnAddress(answer, 123);
}

// Seconds since 1900 of this system's clock.
std::uint32_t SecondsNow() {
  const auto since1970 = std::chrono::floor<seconds>(SystemTime()).time_since_epoch();
  return static_cast<std::uint32_t>(since1970.count() + peers::kTimeOf1970);
}

TimeReply ReplyTo(const std::string& request) {
  return TimeReply().Stratum(1).Originate(peers::TransmitOf(request)).Transmit(kStampOf2000);
}

class QueryTimeSntp : public testing::Test {
 protected:
  void SetUp() override {
    if (!OnPort123([](const auto&) { return Replies(); }))
      GTEST_SKIP() << "port 123 of 127.0.0.0/8 may not be used here";
    time_.Timeout(5);
  }

  bool Ask(const DatagramServer::Answer& answer) {
    server_ = OnPort123(answer);
    if (!server_) return false;
    time_.Server(server_->Ip());
    return time_.QueryTime();
  }

  bool AskOnce(const std::string& reply) {
    return Ask([=](const std::string&) -> Replies { return {reply}; });
  }

  std::unique_ptr<DatagramServer> server_;
  QueryTimeCLS time_;  // on its default port
};

TEST_F(QueryTimeSntp, RequestOnTheWire) {
  constexpr std::uint32_t kOffset = 20'700;
  const TimeZone zone("NPT-5:45");
  for (const std::int32_t version : {3, 4}) {
    time_.SNTPVersion(version);
    const std::uint32_t before = SecondsNow();
    EXPECT_TRUE(Ask([](const auto& request) -> Replies { return {ReplyTo(request).Bytes()}; }));
    const std::vector<std::string> requests = server_->Received();
    ASSERT_EQ(requests.size(), 1u);
    const std::string& request = requests[0];
    ASSERT_EQ(request.size(), 48u);
    EXPECT_EQ(request[0], version == 3 ? 27 : 35);
    EXPECT_EQ(request.substr(1, 39), std::string(39, '\0'));
    EXPECT_GE(request.substr(40, 4), Big32(before + kOffset));
    EXPECT_LE(request.substr(40, 4), Big32(SecondsNow() + kOffset));
    EXPECT_EQ(request.substr(44), std::string(4, '\0'));
  }
}

TEST_F(QueryTimeSntp, RandomFractionsDiffer) {
  time_.SNTPRandomFraction(true);
  std::set<std::string> fractions;
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(Ask([](const auto& request) -> Replies { return {ReplyTo(request).Bytes()}; }));
    fractions.insert(server_->Received().at(0).substr(44));
  }
  EXPECT_GT(fractions.size(), 2u);
}

TEST_F(QueryTimeSntp, DifferenceIsToLocalTimeAndOffsetToUtc) {
  const TimeZone zone("<+02>-2");
  constexpr double kTolerance = 5;  // the server tells whole seconds, the machine may be busy
  for (const int ahead : {0, 100, -100}) {
    EXPECT_TRUE(Ask([=](const auto& request) -> Replies {
      const std::uint32_t now = SecondsNow() + static_cast<std::uint32_t>(ahead);
      return {ReplyTo(request).Receive(now).Transmit(now).Bytes()};
    }));
    EXPECT_NEAR(time_.SNTPDifference(), 7200 - ahead, kTolerance);
    EXPECT_NEAR(time_.SNTPOffset(), ahead, kTolerance);
    EXPECT_NEAR((time_.DateTime() - WallClock()) * 86'400, ahead, kTolerance);
  }
}

TEST_F(QueryTimeSntp, OnlyAReplyToTheRequestCounts) {
  EXPECT_TRUE(Ask([](const std::string& request) -> Replies {
    const std::string forged = ReplyTo(request).Transmit(1).Bytes();
    std::string other = request;
    other[47] = 1;
    return {ReplyTo(other).Transmit(1).Bytes(),
            ReplyTo(std::string(48, '\0')).Bytes(),
            {forged, From::kOtherPort},
            {forged, From::kOtherAddress},
            ReplyTo(request).Bytes()};
  }));
  EXPECT_NEAR(time_.DateTime(), *TextToDate(k2000), 5.0 / 86'400);
}

TEST_F(QueryTimeSntp, WaitsOnAfterOtherReplies) {
  const RunningClock clock([&] { return server_ && server_->Count() > 0; });
  const TimePoint before = Now();
  EXPECT_FALSE(AskOnce(ReplyTo(std::string(48, '\1')).Bytes()));
  EXPECT_EQ(time_.LastErr(), 10002);
  EXPECT_EQ(time_.LastErrMsg(), "Command Timed Out");
  EXPECT_GE(Now() - before, seconds(5));
}

}  // namespace
}  // namespace netro
