// QueryTimeCLS over TCP: what a connection sends, where a reply ends, how connections fail, and
// SOCKS proxies. SNTP's port is only ever named to a proxy, which needs no right to use it.

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/QueryTimeCLS.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <semaphore>
#include <string>
#include <vector>

#include "DnsTestKit.h"
#include "platform/Clock.h"
#include "support/DateText.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/SocksServer.h"
#include "tests/peers/TimeReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::Big32;
using peers::BytesServer;
using peers::Connection;
using peers::Script;
using peers::SocksRules;
using peers::SocksServer;
using peers::TimeReply;
using std::chrono::seconds;

constexpr std::uint32_t kStampOf2000 = 3'155'673'600;
constexpr char k2000[] = "2000-01-01T00:00:00.000Z";

class QueryTimeTcp : public testing::Test {
 protected:
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

  // For a wait that only the clock ends.
  void ExpectTimeOut() {
    const RunningClock clock([] { return true; });
    const TimePoint before = Now();
    EXPECT_FALSE(time_.QueryTime());
    EXPECT_EQ(time_.LastErr(), 10002);
    EXPECT_EQ(time_.LastErrMsg(), "Command Timed Out");
    EXPECT_GE(Now() - before, seconds(10));
    EXPECT_LT(Now() - before, seconds(15));
  }

  QueryTimeCLS time_;
  std::string received_;
};

TEST_F(QueryTimeTcp, ABareConnectionAsks) {
  EXPECT_TRUE(Ask({peers::Send(Big32(kStampOf2000)), peers::Stay()}));
  EXPECT_EQ(received_, "");
  EXPECT_EQ(DateToText(time_.DateTime()), k2000);
  EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
  EXPECT_GT(time_.SNTPDifference(), 800'000'000);
  EXPECT_EQ(time_.LastErr(), 0);
}

TEST_F(QueryTimeTcp, FourBytesInAnyPieces) {
  const std::string reply = Big32(kStampOf2000);
  const std::vector<std::vector<std::size_t>> kCuts = {{1}, {2}, {3}, {1, 2, 3}};
  for (const auto& cuts : kCuts) {
    EXPECT_TRUE(Ask({peers::Send(reply, cuts), peers::Stay()}));
    EXPECT_EQ(DateToText(time_.DateTime()), k2000);
  }
}

TEST_F(QueryTimeTcp, FurtherBytesAreNotRead) {
  for (const std::size_t more : {1u, 44u, 1000u}) {
    EXPECT_TRUE(Ask({peers::Send(Big32(kStampOf2000) + std::string(more, 'x')), peers::Stay()}));
    EXPECT_EQ(DateToText(time_.DateTime()), k2000);
  }
}

TEST_F(QueryTimeTcp, ACloseLeavesWhatCameToItsLength) {
  for (std::size_t size = 0; size <= 4; ++size) {
    SCOPED_TRACE(size);
    EXPECT_EQ(Ask({peers::Send(Big32(kStampOf2000).substr(0, size)), peers::Close()}), size == 4);
    EXPECT_EQ(time_.LastErr(), size == 4 ? 0 : 100003);
    EXPECT_EQ(time_.DateTime() == 0, size < 4);
    EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
  }
  EXPECT_FALSE(Ask({peers::Send(Big32(0)), peers::Close()}));
  EXPECT_EQ(time_.LastErr(), 100002);
}

TEST_F(QueryTimeTcp, AResetIsItsNumber) {
  for (std::size_t size = 0; size < 3; ++size) {
    EXPECT_FALSE(Ask({peers::Send("123"s.substr(0, size + 1), {size}), peers::Reset()}));
    EXPECT_EQ(time_.LastErr(), 10054) << size;
    EXPECT_EQ(time_.DateTime(), 0);
  }
}

TEST_F(QueryTimeTcp, RefusedIs10061) {
  const peers::RefusingPort nobody;
  time_.Port(nobody.Port());
  EXPECT_FALSE(time_.QueryTime());
  EXPECT_EQ(time_.LastErr(), 10061);
  EXPECT_EQ(time_.LastErrMsg(), time_.TranslateLastErrNr(10061));
}

// The connection and its data are told at once; the round trip must not begin in 1970.
TEST_F(QueryTimeTcp, AServerMayAnswerBeforeTheConnectionIsNoticed) {
  for (const std::string& reply : {Big32(kStampOf2000), "12"s}) {
    std::binary_semaphore sent(0);
    peers::LoopbackServer server([&](Connection& connection, std::size_t) {
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

TEST_F(QueryTimeTcp, ConnectingTakesTheTimeoutAtMost) {
  const peers::HangingPort full;
  time_.Port(full.Port());
  ExpectTimeOut();
}

TEST_F(QueryTimeTcp, AnsweringTakesTheTimeoutAtMost) {
  BytesServer server({{peers::Send("123"), peers::Stay()}});
  time_.Port(server.Port());
  ExpectTimeOut();
  EXPECT_EQ(time_.DateTime(), 0);
}

std::string PortBytes(int port) {
  return {static_cast<char>(port / 256), static_cast<char>(port % 256)};
}

class QueryTimeSocks : public QueryTimeTcp {
 protected:
  QueryTimeSocks() {
    time_.ProxyURL("127.0.0.1");
    time_.ProxyUser("user");
    time_.ProxyPassword("secret");
  }

  bool AskThrough(const SocksServer& proxy, TimeProxyTypeEnum type, bool remoteNames = false) {
    time_.Server(remoteNames ? "clock.test" : "127.0.0.1");
    time_.Port(clock_.Port());
    time_.ProxyPort(proxy.Port());
    time_.ProxyType(type);
    time_.ProxyUseRemoteDNS(remoteNames);
    return time_.QueryTime();
  }

  BytesServer clock_{{{peers::Send(Big32(kStampOf2000)), peers::Stay()}}};
};

TEST_F(QueryTimeSocks, EachKindAsksInItsWay) {
  const std::string port = PortBytes(clock_.Port());
  const std::string local = "\x7f\0\0\x01"s, name = "clock.test";
  const std::string login = "\x01\x04user\x06secret"s;
  const std::string toAddress = "\x05\x01\0\x01"s + local + port;
  const std::string toName = "\x05\x01\0\x03\x0a"s + name + port;
  const struct {
    TimeProxyTypeEnum type;
    bool remoteNames;
    std::uint8_t method;
    std::vector<std::string> requests;
  } kCases[] = {
      {TimeProxySocks4, false, 0, {"\x04\x01"s + port + local + "user\0"s}},
      {TimeProxySocks4, true, 0, {"\x04\x01"s + port + "\0\0\0\x01user\0"s + name + "\0"s}},
      {TimeProxySocks5NoAuth, false, 0, {"\x05\x01\0"s, toAddress}},
      {TimeProxySocks5NoAuth, true, 0, {"\x05\x01\0"s, toName}},
      {TimeProxySocks5Auth, false, 2, {"\x05\x02\0\x02"s, login, toAddress}},
      {TimeProxySocks5Auth, true, 2, {"\x05\x02\0\x02"s, login, toName}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::to_string(c.type) + (c.remoteNames ? " with the name" : ""));
    SocksRules rules;
    rules.method = c.method;
    rules.user = "user";
    rules.password = "secret";
    SocksServer proxy(rules);
    EXPECT_TRUE(AskThrough(proxy, c.type, c.remoteNames)) << time_.LastErrMsg();
    EXPECT_EQ(proxy.Requests(), c.requests);
    EXPECT_EQ(DateToText(time_.DateTime()), k2000);
  }
}

TEST_F(QueryTimeSocks, Refusals) {
  SocksRules refuses4, refuses5, noMethod, noUser, closes, closesLast;
  refuses4.version4Reply = 91;
  refuses5.version5Reply = 5;
  noMethod.method = 255;
  noUser.method = 2;
  closes.closeAt = 0;
  closesLast.closeAt = 1;
  const struct {
    SocksRules rules;
    TimeProxyTypeEnum type;
    std::int32_t error;
  } kCases[] = {{refuses4, TimeProxySocks4, 9001},        {refuses5, TimeProxySocks5NoAuth, 9001},
                {noMethod, TimeProxySocks5Auth, 9003},    {noUser, TimeProxySocks5Auth, 9002},
                {closes, TimeProxySocks4, 9001},          {closes, TimeProxySocks5NoAuth, 9003},
                {closesLast, TimeProxySocks5NoAuth, 9001}};
  for (const auto& c : kCases) {
    SocksServer proxy(c.rules);
    EXPECT_FALSE(AskThrough(proxy, c.type));
    EXPECT_EQ(time_.LastErr(), c.error);
    EXPECT_EQ(time_.LastErrMsg(), time_.TranslateLastErrNr(c.error));
    EXPECT_EQ(time_.LastErrMsg().rfind("Proxy SOCKS. ", 0), 0u) << time_.LastErrMsg();
    EXPECT_EQ(time_.DateTime(), 0);
  }
  EXPECT_EQ(clock_.Connections(), 0u);
}

TEST_F(QueryTimeSocks, RepliesOfTheProxyInAnyPieces) {
  for (const TimeProxyTypeEnum type : {TimeProxySocks4, TimeProxySocks5Auth})
    for (std::size_t cut = 1; cut < 10; ++cut) {
      SocksRules rules;
      rules.cuts = {cut};
      SocksServer proxy(rules);
      EXPECT_TRUE(AskThrough(proxy, type)) << type << " cut at " << cut;
      EXPECT_EQ(DateToText(time_.DateTime()), k2000);
    }
}

TEST_F(QueryTimeSocks, TheReplyMayComeWithTheProxys) {
  for (const TimeProxyTypeEnum type : {TimeProxySocks4, TimeProxySocks5NoAuth}) {
    SocksRules rules;
    rules.early = Big32(kStampOf2000 + 1);
    SocksServer proxy(rules);
    EXPECT_TRUE(AskThrough(proxy, type));
    EXPECT_EQ(DateToText(time_.DateTime()), "2000-01-01T00:00:01.000Z");
    EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
  }
}

TEST_F(QueryTimeSocks, EachReplyOfTheProxyMayTakeTheTimeout) {
  SocksRules rules;
  rules.silentAt = 1;
  SocksServer proxy(rules);
  time_.Port(clock_.Port());
  time_.ProxyPort(proxy.Port());
  time_.ProxyType(TimeProxySocks5NoAuth);
  const RunningClock clock([&] { return proxy.Requests().size() == 2; });
  const TimePoint before = Now();
  EXPECT_FALSE(time_.QueryTime());
  EXPECT_EQ(time_.LastErr(), 10002);
  EXPECT_GE(Now() - before, seconds(10));
  EXPECT_LT(Now() - before, seconds(15));
}

// A SOCKS 4 proxy that is the time server itself, whatever port it is asked for.
class QueryTimeSntpTcp : public QueryTimeTcp {
 protected:
  using Talk = std::function<void(Connection& connection, const std::string& request)>;

  bool AskSntp(const Talk& talk) {
    request_.clear();
    peers::LoopbackServer server([&](Connection& connection, std::size_t) {
      std::string received;
      while (received.size() < 9 && connection.Read(received)) {
      }
      connection.Send("\0\x5A\0\0\0\0\0\0"s);
      received.erase(0, 9);
      while (received.size() < 48 && connection.Read(received)) {
      }
      request_ = received;
      talk(connection, received);
    });
    time_.Port(123);
    time_.ProxyType(TimeProxySocks4);
    time_.ProxyURL("127.0.0.1");
    time_.ProxyPort(server.Port());
    return time_.QueryTime();
  }

  static Talk Send(std::function<std::string(const std::string& request)> reply,
                   std::vector<std::size_t> cuts = {}, bool close = false) {
    return [=](Connection& connection, const std::string& request) {
      connection.SendCut(reply(request), cuts);
      std::string rest;
      if (close) connection.HalfClose();
      connection.ReadToEnd(rest);
      EXPECT_EQ(rest, "");
    };
  }

  static std::string Reply(const std::string& request, std::uint32_t stamp = kStampOf2000) {
    return TimeReply().Stratum(1).Originate(peers::TransmitOf(request)).Transmit(stamp).Bytes();
  }

  std::string request_;
};

TEST_F(QueryTimeSntpTcp, Sends48Bytes) {
  for (const std::int32_t version : {3, 4, 5}) {
    time_.SNTPVersion(version);
    EXPECT_TRUE(AskSntp(Send([](const auto& request) { return Reply(request); })));
    ASSERT_EQ(request_.size(), 48u);
    EXPECT_EQ(request_[0], version == 3 ? 27 : 35);
    EXPECT_EQ(request_.substr(1, 39), std::string(39, '\0'));
    EXPECT_NE(request_.substr(40, 4), std::string(4, '\0'));
    EXPECT_EQ(request_.substr(44), std::string(4, '\0'));
    EXPECT_EQ(time_.SNTPStratum(), SNTPStratumEnum::PrimaryReference);
  }
}

TEST_F(QueryTimeSntpTcp, ReplyInAnyPieces) {
  for (std::size_t cut = 1; cut < 48; ++cut) {
    EXPECT_TRUE(AskSntp(Send([](const auto& request) { return Reply(request); }, {cut}))) << cut;
    EXPECT_EQ(time_.SNTPStratum(), SNTPStratumEnum::PrimaryReference) << cut;
    EXPECT_GT(time_.DateTime(), 36'525) << cut;
  }
}

TEST_F(QueryTimeSntpTcp, ACloseLeavesWhatCameToItsLength) {
  for (std::size_t size = 0; size <= 48; ++size) {
    SCOPED_TRACE(size);
    // The first four bytes are read as seconds when nothing follows.
    const bool good = AskSntp(
        Send([=](const auto& request) { return Reply(request).substr(0, size); }, {}, true));
    EXPECT_EQ(good, size == 4 || size == 48);
    EXPECT_EQ(time_.LastErr(), good ? 0 : 100003);
    EXPECT_EQ(time_.DateTime() == 0, !good);
  }
}

TEST_F(QueryTimeSntpTcp, RepliesToOtherQuestionsAreSkipped) {
  const auto foreign = [](std::string request) {
    request[43] = static_cast<char>(request[43] ^ 1);
    return Reply(request, kStampOf2000 + 99);
  };
  for (const std::size_t cut : {0u, 10u, 48u, 60u, 96u, 100u}) {
    EXPECT_TRUE(AskSntp(Send(
        [&](const auto& request) { return foreign(request) + foreign(request) + Reply(request); },
        {cut})));
    EXPECT_NEAR(time_.DateTime(), 36'526, 5.0 / 86'400);
  }
  EXPECT_FALSE(AskSntp(Send(foreign, {}, true))) << "nothing but a foreign one, then the end";
  EXPECT_EQ(time_.LastErr(), 100003);
}

TEST_F(QueryTimeSntpTcp, WaitsOnAfterAForeignReply) {
  std::atomic<bool> sent{false};
  const RunningClock clock([&] { return sent.load(); });
  EXPECT_FALSE(AskSntp([&](Connection& connection, const std::string&) {
    connection.Send(Reply(std::string(48, '\0')));
    sent = true;
    std::string rest;
    connection.ReadToEnd(rest);
  }));
  EXPECT_EQ(time_.LastErr(), 10002);
}

}  // namespace
}  // namespace netro
