// TimeSurveyCls: which clocks agree, and surveys of servers on port 123, which low_ports runs too.
#include <netro/TimeSurveyCls.h>
#include <netro/testkit/TimeReply.h>

#include "DnsTestKit.h"
#include "web/TimeIntersection.h"

namespace netro {
namespace {

using Replies = DatagramServer::Replies;

TEST(TimeIntersection, AMajorityWhosePointsAndMiddlesMeetAgrees) {
  const struct {
    const char* what;
    std::vector<TimeInterval> clocks;
    double low, high;
    std::string agrees;  // empty: no majority
  } kCases[] = {
      {"none", {}, 0, 0, ""},
      {"one", {{5, 1}}, 4, 6, "y"},
      {"two that overlap", {{0, 2}, {1, 2}}, -1, 2, "yy"},
      {"two that do not", {{0, 1}, {9, 1}}, 0, 0, ""},
      {"two that touch, their middles outside", {{0, 1}, {2, 1}}, 0, 0, ""},
      {"the same", {{3, 1}, {3, 1}, {3, 1}}, 2, 4, "yyy"},
      {"one false of three", {{0, 1}, {0.5, 1}, {3600, 1}}, -0.5, 1, "yyn"},
      {"two false of four", {{0, 1}, {0, 1}, {50, 1}, {90, 1}}, 0, 0, ""},
      {"two false of five", {{0, 1}, {50, 1}, {0, 2}, {90, 1}, {0, 3}}, -1, 1, "ynyny"},
      {"two parties of two", {{0, 1}, {0, 1}, {9, 1}, {9, 1}}, 0, 0, ""},
      {"a wide one that holds all", {{0, 1}, {0, 1}, {7, 100}}, -1, 1, "yyy"},
      {"a wide one with its middle outside, two of two", {{0, 1}, {7, 100}}, 0, 0, ""},
      {"without any width", {{1, 0}, {1, 0}, {2, 0}}, 1, 1, "yyn"},
  };
  for (const auto& test : kCases) {
    const auto agreement = FindAgreement(test.clocks);
    std::string agrees;
    if (agreement) {
      for (const bool one : agreement->agrees) agrees += one ? 'y' : 'n';
      EXPECT_DOUBLE_EQ(agreement->low, test.low) << test.what;
      EXPECT_DOUBLE_EQ(agreement->high, test.high) << test.what;
    }
    EXPECT_EQ(agrees, test.agrees) << test.what;
  }
}

// A clock that is so many seconds ahead, of stratum 1 and with a dispersion of half a second.
TimeReply ReplyOf(const std::string& request, double ahead) {
  const auto since1970 =
      SystemTime().time_since_epoch() +
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(ahead));
  const auto whole = std::chrono::floor<std::chrono::seconds>(since1970);
  const auto stamp = static_cast<std::uint32_t>(whole.count() + testkit::kTimeOf1970);
  const auto part = std::chrono::duration<double>(since1970 - whole).count();
  const auto fraction = static_cast<std::uint32_t>(part * 4294967295.0);
  return TimeReply()
      .Stratum(1)
      .Precision(236)
      .Id("GPS")
      .RootDispersion(0x8000)
      .Originate(testkit::TransmitOf(request))
      .Receive(stamp, fraction)
      .Transmit(stamp, fraction);
}

DatagramServer::Answer Clock(double ahead) {
  return [=](const std::string& request) -> Replies { return {ReplyOf(request, ahead).Bytes()}; };
}

struct TimeSurvey : testing::Test {
  void SetUp() override {
    if (!testkit::ServeOnOwnAddress(Clock(0), 123)) {
      GTEST_SKIP() << "port 123 of 127.0.0.0/8 may not be used here";
    }
    survey_->Interval(1);
    survey_->Samples(3);
  }

  void Serve(const std::vector<DatagramServer::Answer>& answers) {
    std::vector<std::string> names;
    servers_.clear();
    for (const auto& answer : answers) {
      servers_.push_back(testkit::ServeOnOwnAddress(answer, 123));
      ASSERT_NE(servers_.back(), nullptr);
      names.push_back(servers_.back()->Ip());
    }
    survey_->Servers(names);
  }

  std::string States() const {
    std::string states;
    for (const auto& report : survey_->Reports())
      states += "AFLU"[static_cast<std::size_t>(report.State)];
    return states;
  }

  std::vector<std::unique_ptr<DatagramServer>> servers_;
  std::unique_ptr<TimeSurveyCls> survey_ = std::make_unique<TimeSurveyCls>();
};

TEST_F(TimeSurvey, TheMajorityTellsTheTimeAndWhoIsWrong) {
  Serve({Clock(100), Clock(3600), Clock(100.2)});
  EXPECT_TRUE(survey_->Survey()) << survey_->LastErrMsg();
  EXPECT_EQ(States(), "AFA");
  EXPECT_NEAR(survey_->Offset(), 100.1, survey_->Bound());
  EXPECT_GT(survey_->Bound(), 0.3);
  for (const auto& server : servers_) EXPECT_EQ(server->Count(), 3u);
  const TimeServerReport& report = survey_->Reports().at(1);
  EXPECT_EQ(report.Server, servers_[1]->Ip());
  EXPECT_EQ(report.Samples, 3);
  EXPECT_EQ(report.Stratum, 1);
  EXPECT_EQ(report.ReferenceID, "GPS");
  EXPECT_DOUBLE_EQ(report.RootDispersion, 0.5);
  EXPECT_NEAR(report.Offset, 3600, report.Bound);

  Serve({Clock(0), Clock(3600)});
  survey_->Servers({servers_[0]->Ip(), servers_[1]->Ip(), servers_[1]->Ip()});  // is but one
  EXPECT_FALSE(survey_->Survey());
  EXPECT_EQ(survey_->LastErr(), 100005);
  EXPECT_EQ(States(), "UUU");
}

TEST_F(TimeSurvey, WhatTellsNoTimeIsLeftOutWithItsReason) {
  const auto with = [](auto change) -> DatagramServer::Answer {
    return [=](const std::string& request) -> Replies {
      TimeReply reply = ReplyOf(request, 50);
      change(reply);
      return {reply.Bytes()};
    };
  };
  Serve({Clock(0), with([](TimeReply& r) { r.Leap(3); }),
         with([](TimeReply& r) { r.Stratum(0).Id("RATE"); }),
         with([](TimeReply& r) { r.Stratum(16); }), with([](TimeReply& r) { r.Stratum(0).Id({}); }),
         with([](TimeReply& r) { r.Mode(5); }), with([](TimeReply& r) { r.Receive(0); }),
         with([](TimeReply& r) { r.Transmit(0); }),
         with([](TimeReply& r) { r.RootDispersion(0x20000); })});
  EXPECT_TRUE(survey_->Survey()) << survey_->LastErrMsg();
  EXPECT_EQ(States(), "ALLLLLLLL");
  for (const auto& report : survey_->Reports())
    EXPECT_EQ(report.Reason.empty(), report.State == TimeServerStateEnum::Agrees);
  EXPECT_EQ(survey_->Reports().at(2).KissCode, "RATE");
  EXPECT_EQ(survey_->Reports().at(7).LastErr, 100000);
  EXPECT_EQ(servers_[2]->Count(), 1u) << "it wants to be left alone";
}

TEST_F(TimeSurvey, ARefusalBehindATimeLeavesThat) {
  const auto count = std::make_shared<std::atomic<int>>(0);
  Serve({[=](const std::string& request) -> Replies {
    TimeReply reply = ReplyOf(request, 0);
    if (++*count > 1) reply.Stratum(0).Id("RATE");
    return {reply.Bytes()};
  }});
  EXPECT_TRUE(survey_->Survey());
  EXPECT_EQ(survey_->Reports().at(0).Samples, 1);
  EXPECT_EQ(survey_->Reports().at(0).KissCode, "RATE");
  EXPECT_EQ(servers_[0]->Count(), 2u);
}

TEST_F(TimeSurvey, LimitsAndCancelling) {
  const auto silent = [](const std::string&) -> Replies { return {}; };
  Serve({Clock(0), silent});
  survey_->Timeout(600);
  survey_->TotalTimeout(5);
  {
    // The first one's reply has been taken in when it is asked again.
    const RunningClock clock([&] { return servers_[0]->Count() > 1 && servers_[1]->Count() > 0; });
    const Takes time(seconds(0), std::chrono::seconds(30));
    EXPECT_TRUE(survey_->Survey()) << "with what it has got by then";
  }
  EXPECT_EQ(States(), "AL");
  EXPECT_EQ(survey_->Reports().at(1).LastErr, 10002);

  survey_->TotalTimeout(0);
  std::thread stopper([&] {
    while (servers_[1]->Count() < 2) std::this_thread::yield();
    survey_->StopWaiting();
  });
  EXPECT_FALSE(survey_->Survey());
  stopper.join();
  EXPECT_EQ(survey_->LastErr(), 9999);
  EXPECT_TRUE(survey_->Reports().empty());
}

TEST(TimeSurveySettings, ThatCannotBe) {
  TimeSurveyCls survey;
  const std::function<void()> kCases[] = {
      [&] { survey.Servers({}); },
      [&] { survey.Servers(std::vector<std::string>(1001, "x")); },
      [&] { survey.Samples(0); },
      [&] { survey.Interval(-1); },
      [&] { survey.TotalTimeout(-1); },
  };
  for (const auto& change : kCases) {
    survey.Servers({"127.0.0.1"});
    change();
    EXPECT_FALSE(survey.Survey());
    EXPECT_EQ(survey.LastErr(), 10022);
    EXPECT_TRUE(survey.Reports().empty());
  }
}

}  // namespace
}  // namespace netro
