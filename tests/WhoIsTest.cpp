// WhoIsCls: what it sends, how answers and connections end, what stays in Result, SOCKS proxies,
// and how the caller ends a query.

#include <gtest/gtest.h>
#include <netro/WhoIsCls.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DnsTestKit.h"
#include "SocksKinds.h"
#include "SystemRoot.h"
#include "platform/Clock.h"
#include "socket/HostLookup.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::AwaitText;
using peers::BytesServer;
using peers::Close;
using peers::Connection;
using peers::Reset;
using peers::Script;
using peers::Send;
using peers::SocksRules;
using peers::SocksServer;
using peers::Stay;
using std::chrono::seconds;

constexpr std::size_t kLargestAnswer = 64 * 1024 * 1024;

class WhoIs : public testing::Test {
 protected:
  WhoIs() {
    who_->Timeout(10);
    DefaultHostLookup().Clear();
  }

  bool Ask(BytesServer& server, const std::string& query = "name.test") {
    who_->Port(server.Port());
    return who_->WhoIs("127.0.0.1", query);
  }
  bool Ask(const Script& script) {
    BytesServer server({script});
    return Ask(server);
  }

  void ExpectError(std::int32_t number, const std::string& text) {
    EXPECT_EQ(who_->LastErr(), number);
    EXPECT_EQ(who_->LastErrMsg(), text);
  }

  std::unique_ptr<WhoIsCls> who_ = std::make_unique<WhoIsCls>();
};

TEST_F(WhoIs, QueryAndWholeAnswer) {
  const std::string answer = "domain: name.test\r\nholder: someone\r\n\r\n";
  for (const std::string& query :
       {"name.test"s, ""s, "-T dn,ace b\xFC\x63her.test"s, std::string(300'000, 'q')}) {
    BytesServer server({{AwaitText("\r\n"), Send(answer), Close()}});
    EXPECT_TRUE(Ask(server, query));
    EXPECT_EQ(server.Received(0), query + "\r\n");
    EXPECT_EQ(who_->Result(), answer);
    ExpectError(0, "");
  }
}

TEST_F(WhoIs, AServerMayAnswerBeforeTheQueryOrCloseWithoutAWord) {
  EXPECT_TRUE(Ask({Send("closed today\r\n")}));
  EXPECT_EQ(who_->Result(), "closed today\r\n");
  EXPECT_TRUE(Ask({AwaitText("\r\n"), Close()}));
  EXPECT_EQ(who_->Result(), "");
  ExpectError(0, "");
}

TEST_F(WhoIs, ResultIsOfTheLastQuery) {
  EXPECT_TRUE(Ask({AwaitText("\r\n"), Send("long answer"), Close()}));
  EXPECT_TRUE(Ask({AwaitText("\r\n"), Send("short"), Close()}));
  EXPECT_EQ(who_->Result(), "short");
  EXPECT_FALSE(who_->WhoIs("", "name.test"));
  EXPECT_EQ(who_->Result(), "");
}

TEST_F(WhoIs, HostAndItsPort) {
  SystemRoot root;
  root.Put("etc/hosts", "127.0.0.1 whois.test\n");
  BytesServer server({{AwaitText("\r\n"), Send("answer"), Close()}});
  const peers::RefusingPort nobody;
  const std::string port = ":" + std::to_string(server.Port());
  const struct {
    std::string host;
    std::int32_t port;
  } kCases[] = {{"127.0.0.1", server.Port()},
                {"whois.test", server.Port()},
                {"whois://whois.test", server.Port()},
                {"WHOIS://127.0.0.1/", server.Port()},
                {"user:secret@127.0.0.1/path?query", server.Port()},
                {"127.0.0.1" + port, nobody.Port()},
                {"whois.test" + port, 0},
                {"whois://whois.test" + port, nobody.Port()},
                {"whois://whois.test" + port + "/", -1},
                {"//127.0.0.1" + port, 65'536}};
  for (const auto& c : kCases) {
    who_->Port(c.port);
    EXPECT_TRUE(who_->WhoIs(c.host, "name.test")) << c.host << " " << who_->LastErrMsg();
    EXPECT_EQ(who_->Result(), "answer");
  }
}

TEST_F(WhoIs, ArgumentsThatCannotBe) {
  BytesServer server({{AwaitText("\r\n"), Send("answer"), Close()}});
  const struct {
    std::string host, query;
    std::int32_t port;
  } kCases[] = {{"127.0.0.1", "a\rb", server.Port()},
                {"127.0.0.1", "a\r\n", server.Port()},
                {"127.0.0.1", "\n", server.Port()},
                {"127.0.0.1", "a\0"s, server.Port()},
                {"", "a", server.Port()},
                {"whois://", "a", server.Port()},
                {"127.0.0.1\r\n", "a", server.Port()},
                {"127.0.0.1\0.test"s, "a", server.Port()},
                {"127.0.0.1:0", "a", server.Port()},
                {"127.0.0.1:65536", "a", server.Port()},
                {"127.0.0.1:x", "a", server.Port()},
                {"[::1", "a", server.Port()},
                {"127.0.0.1", "a", 0},
                {"127.0.0.1", "a", -1},
                {"127.0.0.1", "a", 65'536}};
  for (const auto& c : kCases) {
    who_->Port(c.port);
    EXPECT_FALSE(who_->WhoIs(c.host, c.query)) << c.host << " " << c.query;
    EXPECT_EQ(who_->LastErr(), 10022);
    EXPECT_NE(who_->LastErrMsg(), "");
    EXPECT_EQ(who_->LastErrMsg().find_first_of("\r\n\0"s), std::string::npos);
  }
  who_->ProxyType(static_cast<WhoIsProxyTypeEnum>(4));
  who_->ProxyURL("127.0.0.1");
  EXPECT_FALSE(Ask(server));
  EXPECT_EQ(who_->LastErr(), 10022);
  who_->ProxyType(WhoIsProxySocks4);
  who_->ProxyURL("");
  EXPECT_FALSE(Ask(server));
  EXPECT_EQ(who_->LastErr(), 10022);
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(WhoIs, AConnectionThatFailsNamesItsEnd) {
  const peers::RefusingPort nobody;
  const std::string port = std::to_string(nobody.Port());
  const std::string refused =
      ":" + port +
      "'. Socket Error# '10061'. Connection Refused. The target machine actively refused the "
      "attempt to connect to it.";
  EXPECT_FALSE(who_->WhoIs("whois://127.0.0.1:" + port, "name.test"));
  ExpectError(10061, "Can not connect to '127.0.0.1" + refused);

  who_->ProxyType(WhoIsProxySocks5NoAuth);
  who_->ProxyURL("127.0.0.2");
  who_->ProxyPort(nobody.Port());
  EXPECT_FALSE(who_->WhoIs("whois.test", "name.test"));
  ExpectError(10061, "Can not connect to '127.0.0.2" + refused);

  who_->ProxyType(NoWhoIsProxy);
  EXPECT_FALSE(who_->WhoIs("a..test", "name.test"));
  ExpectError(11001,
              "Can not connect to 'a..test:43'. Socket Error# '11001'. Host Not Found. No network "
              "host matching the hostname or address was found.");
}

TEST_F(WhoIs, AResetKeepsWhatCame) {
  EXPECT_FALSE(Ask({AwaitText("\r\n"), Send("first line\r\n?", {12}), Reset()}));
  ExpectError(10054,
              "Connection Reset by Peer. A connection was forcibly closed by the remote host.");
  EXPECT_EQ(who_->Result().substr(0, 12), "first line\r\n");

  EXPECT_FALSE(Ask({AwaitText("\r\n"), Reset()}));
  EXPECT_EQ(who_->LastErr(), 10054);
  EXPECT_EQ(who_->Result(), "");
}

TEST_F(WhoIs, SilenceEndsAQuery) {
  for (const std::int32_t timeout : {10, 1, 0, -1}) {
    BytesServer server({{AwaitText("\r\n"), Stay()}});
    who_->Timeout(timeout);
    const RunningClock clock([&] { return !server.ReceivedSoFar(0).empty(); });
    const TimePoint before = Now();
    EXPECT_FALSE(Ask(server));
    ExpectError(10002, "Command Timed Out");
    EXPECT_GE(Now() - before, seconds(std::max(timeout, 0)));
    EXPECT_LT(Now() - before, seconds(std::max(timeout, 0) + 5));
  }
}

// Nine seconds pass after each piece, of the ten that may pass.
TEST_F(WhoIs, EachArrivalRestartsTheClock) {
  std::counting_semaphore<> next(0);
  peers::LoopbackServer server([&](Connection& connection, std::size_t) {
    std::string query;
    connection.Read(query);
    for (const char piece : "abcde"s) {
      connection.Send(std::string(1, piece));
      if (!next.try_acquire_for(seconds(5))) return;
    }
    connection.ReadToEnd(query);
  });
  who_->Port(server.Port());
  int pauses = 0;
  for (std::size_t size = 1; size <= 5; ++size)
    PostWhen([=, this] { return who_->Result().size() == size; },
             [&] {
               AdvanceClockForTests(seconds(9));
               ++pauses;
               next.release();
             });
  const RunningClock clock([&] { return pauses == 5; });
  const TimePoint before = Now();
  EXPECT_FALSE(who_->WhoIs("127.0.0.1", "name.test"));
  ExpectError(10002, "Command Timed Out");
  EXPECT_EQ(who_->Result(), "abcde");
  EXPECT_EQ(pauses, 5);
  EXPECT_GE(Now() - before, seconds(5 * 9 + 1));
  EXPECT_LT(Now() - before, seconds(5 * 9 + 15));
}

TEST_F(WhoIs, EndlessAnswersAreCutOff) {
  peers::LoopbackServer server([](Connection& connection, std::size_t) {
    const std::string block(1'000'000, 'x');
    while (connection.Send(block)) {
    }
  });
  who_->Port(server.Port());
  EXPECT_FALSE(who_->WhoIs("127.0.0.1", "name.test"));
  EXPECT_EQ(who_->LastErr(), 10040);
  EXPECT_EQ(who_->Result().size(), kLargestAnswer);
}

// Settings and arguments may go while a query works with them.
TEST_F(WhoIs, AQueryWorksOnCopies) {
  BytesServer server({{AwaitText("name.test\r\n"), Send("answer"), Close()}});
  auto host = std::make_unique<std::string>("127.0.0.1:" + std::to_string(server.Port()));
  auto query = std::make_unique<std::string>("name.test");
  PostWhen([] { return true; },
           [&] {
             host.reset();
             query.reset();
             who_->DNSURL("no:server");
             who_->ProxyURL("nowhere");
           });
  EXPECT_TRUE(who_->WhoIs(*host, *query));
  EXPECT_EQ(who_->Result(), "answer");
}

class WhoIsSocks : public WhoIs {
 protected:
  WhoIsSocks() {
    who_->ProxyURL("127.0.0.1");
    who_->ProxyUser("user");
    who_->ProxyPassword("secret");
  }

  bool AskThrough(const SocksServer& proxy, WhoIsProxyTypeEnum type, bool remoteNames = false) {
    who_->Port(server_.Port());
    who_->ProxyPort(proxy.Port());
    who_->ProxyType(type);
    who_->ProxyUseRemoteDNS(remoteNames);
    return who_->WhoIs(remoteNames ? "whois.test" : "127.0.0.1", "name.test");
  }

  BytesServer server_{{{AwaitText("name.test\r\n"), Send("answer"), Close()}}};
};

TEST_F(WhoIsSocks, EachKindAsksInItsWay) {
  for (const SocksKind& kind : SocksKinds("whois.test", server_.Port())) {
    SCOPED_TRACE(std::to_string(kind.type) + (kind.remoteNames ? " with the name" : ""));
    SocksServer proxy(kind.rules);
    const auto type = static_cast<WhoIsProxyTypeEnum>(kind.type);
    EXPECT_TRUE(AskThrough(proxy, type, kind.remoteNames)) << who_->LastErrMsg();
    EXPECT_EQ(proxy.Requests(), kind.requests);
    EXPECT_EQ(who_->Result(), "answer");
  }
  SocksRules refuses;
  refuses.version5Reply = 5;
  SocksServer proxy(refuses);
  EXPECT_FALSE(AskThrough(proxy, WhoIsProxySocks5NoAuth));
  ExpectError(
      9001, "Proxy SOCKS. The connection request has failed or the proxy server has rejected it.");
}

TEST_F(WhoIsSocks, TheAnswerMayBeginWithTheProxysReply) {
  SocksRules rules;
  rules.early = "banner, ";
  SocksServer proxy(rules);
  EXPECT_TRUE(AskThrough(proxy, WhoIsProxySocks5NoAuth));
  EXPECT_EQ(who_->Result(), "banner, answer");
}

// A query that is waiting for something, until the test ends it.
struct Scene {
  std::shared_ptr<void> peers;
  std::string host;
  std::function<bool()> reached;
};

Scene WaitForAddress(WhoIsCls& who) {
  auto dns =
      std::make_shared<peers::DnsServer>([](const auto&) { return peers::DnsServer::Replies(); });
  who.DNSURL("127.0.0.1:" + std::to_string(dns->Port()));
  return {dns, "whois.test", [=] { return dns->QueryCount() > 0; }};
}

Scene WaitForConnection(WhoIsCls& who) {
  auto full = std::make_shared<peers::HangingPort>();
  who.Port(full->Port());
  return {full, "127.0.0.1", [] { return true; }};
}

Scene WaitForProxy(WhoIsCls& who) {
  SocksRules rules;
  rules.silentAt = 0;
  auto proxy = std::make_shared<SocksServer>(rules);
  who.ProxyType(WhoIsProxySocks5NoAuth);
  who.ProxyURL("127.0.0.1");
  who.ProxyPort(proxy->Port());
  return {proxy, "127.0.0.1", [=] { return !proxy->Requests().empty(); }};
}

Scene WaitForAnswer(WhoIsCls& who) {
  auto server = std::make_shared<BytesServer>(
      std::vector<Script>{{AwaitText("\r\n"), Send("begin"), Stay()}});
  who.Port(server->Port());
  return {server, "127.0.0.1", [server, &who] { return who.Result() == "begin"; }};
}

// A server that never reads: the query does not fit into the system's buffers.
Scene WaitForSending(WhoIsCls& who) {
  auto server = std::make_shared<peers::LoopbackServer>([](Connection& connection, std::size_t) {
    pollfd stop{connection.StopFd(), POLLIN, 0};
    poll(&stop, 1, -1);
  });
  who.Port(server->Port());
  return {server, "127.0.0.1", [=] { return server->Connections() > 0; }};
}

const struct {
  const char* name;
  Scene (*prepare)(WhoIsCls& who);
} kPlaces[] = {{"the server's address", WaitForAddress},
               {"the connection", WaitForConnection},
               {"the proxy", WaitForProxy},
               {"the query to be sent", WaitForSending},
               {"the answer", WaitForAnswer}};

class EndOfWhoIs : public WhoIs {
 protected:
  // Ends a query in each place by `end`; without an object afterwards it has been deleted.
  void EndEverywhere(const std::function<void()>& end) {
    const std::string query(16 << 20, 'q');
    for (const auto& place : kPlaces) {
      SCOPED_TRACE(place.name);
      const SystemRoot root;
      who_ = std::make_unique<WhoIsCls>();
      const Scene scene = place.prepare(*who_);
      PostWhen(scene.reached, end);
      EXPECT_FALSE(who_->WhoIs(scene.host, place.prepare == WaitForSending ? query : "name.test"));
      if (thread_.joinable()) thread_.join();
      if (!who_) continue;
      ExpectError(9999, "Command Canceled");
      EXPECT_EQ(who_->Result(), place.prepare == WaitForAnswer ? "begin" : "");
      who_->ProxyType(NoWhoIsProxy);
      EXPECT_TRUE(Ask({AwaitText("\r\n"), Send("answer"), Close()}))
          << "what ended a query does not end the next one";
    }
  }

  std::thread thread_;
};

TEST_F(EndOfWhoIs, InEachPlace) {
  EndEverywhere([&] { who_->StopWaiting(); });
  EndEverywhere([&] { thread_ = std::thread([&] { who_->Kill(); }); });
  EndEverywhere([&] { who_.reset(); });
}

TEST_F(EndOfWhoIs, MeanwhileAnotherQueryIsRefusedAndAnotherObjectWorks) {
  EndEverywhere([&] {
    const std::string result = who_->Result();
    EXPECT_FALSE(who_->WhoIs("127.0.0.1", "a\r\n"));
    EXPECT_EQ(who_->LastErr(), 0);
    EXPECT_EQ(who_->Result(), result);
    BytesServer server({{AwaitText("\r\n"), Send("answer"), Close()}});
    WhoIsCls other;
    EXPECT_TRUE(other.WhoIs("127.0.0.1:" + std::to_string(server.Port()), "name.test"));
    EXPECT_EQ(other.Result(), "answer");
    who_->StopWaiting();
  });
}

}  // namespace
}  // namespace netro
