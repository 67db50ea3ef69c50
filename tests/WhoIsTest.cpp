// WhoIsCls: what it sends, how answers and connections end, and what stays in Result.
#include <netro/WhoIsCls.h>

#include <semaphore>

#include "DnsTestKit.h"
#include "socket/HostLookup.h"

namespace netro {
namespace {

constexpr std::size_t kLargestAnswer = 64 * 1024 * 1024;

struct WhoIs : testing::Test {
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
  const std::string large(300'000, 'q');
  const std::tuple<std::string, Script, std::string> kCases[] = {
      {"name.test", {AwaitText("\r\n"), Send("a\r\nb\r\n\r\n"), Close()}, "a\r\nb\r\n\r\n"},
      {"", {AwaitText("\r\n"), Send("short"), Close()}, "short"},
      {"-T dn,ace b\xFC\x63her.test", {AwaitText("\r\n"), Close()}, ""},
      {"name.test", {Send("closed today\r\n")}, "closed today\r\n"},  // before the query
      {large, {AwaitText("\r\n"), Send("large"), Close()}, "large"}};
  for (const auto& [query, script, answer] : kCases) {
    BytesServer server({script});
    EXPECT_TRUE(Ask(server, query));
    EXPECT_EQ(server.Received(0), query + "\r\n");
    EXPECT_EQ(who_->Result(), answer);
    ExpectError(0, "");
  }
  EXPECT_FALSE(who_->WhoIs("", "name.test"));
  EXPECT_EQ(who_->Result(), "") << "it is of the last query";
}

TEST_F(WhoIs, HostAndItsPort) {
  SystemRoot root;
  root.Put("etc/hosts", "127.0.0.1 whois.test\n");
  BytesServer server({{AwaitText("\r\n"), Send("answer"), Close()}});
  const testkit::RefusingPort nobody;
  const std::string port = ":" + std::to_string(server.Port());
  const std::pair<std::string, std::int32_t> kCases[] = {
      {"127.0.0.1", server.Port()},
      {"whois://whois.test", server.Port()},
      {"WHOIS://127.0.0.1/", server.Port()},
      {"user:secret@127.0.0.1/path?query", server.Port()},
      {"whois.test" + port, 0},
      {"whois://whois.test" + port, nobody.Port()},
      {"whois://whois.test" + port + "/", -1},
      {"//127.0.0.1" + port, 65'536}};
  for (const auto& [host, otherPort] : kCases) {
    who_->Port(otherPort);
    EXPECT_TRUE(who_->WhoIs(host, "name.test")) << host << " " << who_->LastErrMsg();
    EXPECT_EQ(who_->Result(), "answer");
  }
}

TEST_F(WhoIs, ArgumentsThatCannotBe) {
  BytesServer server({{AwaitText("\r\n"), Send("answer"), Close()}});
  const auto expectRefused = [&](const std::string& host, const std::string& query, int port) {
    SCOPED_TRACE(host + " " + query);
    who_->Port(port);
    EXPECT_FALSE(who_->WhoIs(host, query));
    EXPECT_EQ(who_->LastErr(), 10022);
    EXPECT_NE(who_->LastErrMsg(), "");
    EXPECT_EQ(who_->LastErrMsg().find_first_of("\r\n\0"s), std::string::npos);
  };
  for (const auto& query : {"a\rb"s, "a\r\n"s, "\n"s, "a\0"s})
    expectRefused("127.0.0.1", query, server.Port());
  for (const auto& host : {""s, "whois://"s, "127.0.0.1\r\n"s, "127.0.0.1\0.test"s, "127.0.0.1:0"s,
                           "127.0.0.1:65536"s, "127.0.0.1:x"s, "[::1"s})
    expectRefused(host, "a", server.Port());
  for (const int port : {0, -1, 65'536}) expectRefused("127.0.0.1", "a", port);
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(WhoIs, AConnectionThatFailsNamesItsEnd) {
  const testkit::RefusingPort nobody;
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

// Nine seconds pass after each piece, of the ten that may pass.
TEST_F(WhoIs, EachArrivalRestartsTheClock) {
  std::counting_semaphore<> next(0);
  testkit::LoopbackServer server([&](Connection& connection, std::size_t) {
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
  const Takes time(seconds(5 * 9 + 1), seconds(5 * 9 + 15));
  EXPECT_FALSE(who_->WhoIs("127.0.0.1", "name.test"));
  ExpectError(10002, "Command Timed Out");
  EXPECT_EQ(who_->Result(), "abcde");
  EXPECT_EQ(pauses, 5);
}

TEST_F(WhoIs, EndlessAnswersAreCutOff) {
  testkit::LoopbackServer server([](Connection& connection, std::size_t) {
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

}  // namespace
}  // namespace netro
