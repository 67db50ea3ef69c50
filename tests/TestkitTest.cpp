// What the component testkit has beyond the servers that all other tests stand on.
#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <netro/QueryTimeCLS.h>
#include <netro/WhoIsCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/HttpServer.h>
#include <netro/testkit/TimeServer.h>
#include <netro/testkit/WhoIsServer.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "platform/Clock.h"

namespace netro {
namespace {

using namespace std::chrono_literals;
using testkit::After;
using testkit::Response;
using Steady = std::chrono::steady_clock;

TEST(TestkitClock, FastTimePassesInEveryWaitAndStaysPassed) {
  const TimePoint before = Now();
  const auto begin = Steady::now();
  {
    const testkit::FastClock clock;
    const testkit::FastClock second(2);  // has no effect
    EXPECT_EQ(MessageLoop::ForThisThread().Sleep(30s), 0);
  }
  EXPECT_LT(Steady::now() - begin, 15s);
  EXPECT_GE(Now() - before, 30s);
  const TimePoint after = Now();
  std::this_thread::sleep_for(20ms);
  EXPECT_LT(Now() - after, 15s) << "time is the system's again";
  testkit::AdvanceClock(1h);
  EXPECT_GE(Now() - after, 1h);
}

TEST(TestkitClock, NeverGoesBackWhileItsRateChanges) {
  std::atomic<bool> over = false;
  std::atomic<int> wrong = 0;
  std::jthread reader([&] {
    for (TimePoint last = Now(); !over;) {
      const TimePoint next = Now();
      wrong += next < last ? 1 : 0;
      last = next;
    }
  });
  for (int i = 0; i < 200; ++i) const testkit::FastClock clock(10);
  over = true;
  reader.join();
  EXPECT_EQ(wrong, 0);
}

TEST(TestkitHttp, AnswersLateInPiecesOrNotAtAll) {
  const std::string good = testkit::HttpServer::Answer(
      "200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5", "hello");
  const struct {
    Response answer;
    int error;
  } kCases[] = {
      {good, 0},
      {{good, After::GoOn, {1, 20, 70}, 30ms}, 0},
      {{good.substr(0, good.size() - 1), After::Close}, 10054},
      {{good.substr(0, good.size() - 1), After::Reset}, 10054},
      {{good.substr(0, good.size() - 1), After::Stay}, 10002},
  };
  testkit::HttpServer server;  // ends first: its threads read the cases
  for (const auto& c : kCases) {
    server.On("/", [&](const testkit::HttpRequest&) { return c.answer; });
    HTTPCls http;
    http.URL(server.Url("/"));
    http.TimeOutSeconds(1);
    bool timeout = false;
    http.HTTPQuery(timeout);
    EXPECT_EQ(timeout ? 10002 : http.LastErr(), c.error);
  }
}

TEST(TestkitWhoIs, AnswersALineAndKeepsIt) {
  testkit::WhoIsServer server([](const std::string& query) -> Response {
    if (query == "cut") return {"half of", After::Reset};
    return "no match for " + query + "\r\n";
  });
  WhoIsCls whois;
  whois.Port(server.Port());
  EXPECT_TRUE(whois.WhoIs("127.0.0.1", "example.org"));
  EXPECT_EQ(whois.Result(), "no match for example.org\r\n");
  whois.WhoIs("127.0.0.1", "cut");
  EXPECT_EQ(whois.LastErr(), 10054);
  EXPECT_EQ(server.Queries(), (std::vector<std::string>{"example.org", "cut"}));
}

TEST(TestkitTime, IsAheadByAsMuchAsTheTestSays) {
  testkit::TimeServer right;
  testkit::TimeServer ahead(1h);
  testkit::TimeServer kiss(
      0ms, [](testkit::TimeReply reply) { return reply.Leap(3).Stratum(0).Id("RATE").Bytes(); });
  QueryTimeCLS time;
  time.Server("127.0.0.1");
  const auto ask = [&](const testkit::TimeServer& server, bool udp) {
    time.Port(server.Port());
    time.UseUDP(udp);
    return time.QueryTime();
  };
  for (const bool udp : {true, false}) {
    EXPECT_TRUE(ask(right, udp));
    const Date present = time.DateTime();
    EXPECT_TRUE(ask(ahead, udp));
    EXPECT_NEAR((time.DateTime() - present) * 24, 1, 0.01) << udp;
  }
  EXPECT_EQ(ahead.Requests().size(), 1u);
  EXPECT_TRUE(ask(kiss, true));
  EXPECT_EQ(time.SNTPKissCode(), "RATE");
}

}  // namespace
}  // namespace netro
