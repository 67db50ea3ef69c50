// The SOCKS prologs: every outcome, replies cut anywhere, and what follows them.
#include "DnsTestKit.h"
#include "SocketTestKit.h"

namespace netro {
namespace {

enum class Kind { V4, V4a, V5, V5Remote, V5Auth };
constexpr Kind kKinds[] = {Kind::V4, Kind::V4a, Kind::V5, Kind::V5Remote, Kind::V5Auth};

bool RunProlog(SocketCls& socket, Kind kind, int port, std::int32_t& error,
               const std::string& user = "me", const std::string& password = "secret",
               const std::string& host = "localhost") {
  const bool remote = kind == Kind::V4a || kind == Kind::V5Remote;
  if (kind == Kind::V4 || kind == Kind::V4a) {
    return socket.Sock4Prolog(host, port, user, remote, error);
  }
  return socket.Socks5Prolog(remote, kind == Kind::V5Auth, host, port, user, password, error);
}

SocksRules RulesFor(Kind kind) {
  SocksRules rules;
  rules.method = kind == Kind::V5Auth ? 2 : 0;
  rules.user = "me";
  rules.password = "secret";
  return rules;
}

// Prolog, then a round trip through the tunnel.
void ExpectTunnel(Kind kind, const SocksRules& rules, const std::string& early = "") {
  BytesServer target({{testkit::AwaitText("ping"), testkit::Send("pong"), testkit::Stay()}});
  SocksServer proxy(rules);
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  recorder.events.clear();
  std::int32_t error = 77;
  ASSERT_TRUE(RunProlog(socket, kind, target.Port(), error)) << error;
  EXPECT_EQ(error, 77) << "untouched on success";
  EXPECT_FALSE(recorder.Saw("DataArrival")) << "the proxy's replies are not the owner's";
  EXPECT_EQ(socket.SendData("ping"), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received == early + "pong"; })) << recorder.received;
  for (const std::size_t size : recorder.sizes) EXPECT_LE(size, 16'000u);
}

TEST(Socks, RepliesMayBeCutAnywhere) {
  for (const Kind kind : kKinds)
    for (std::size_t cut = 0; cut < 10; ++cut) {
      SocksRules rules = RulesFor(kind);
      if (cut > 0) rules.cuts = {cut};
      SCOPED_TRACE(cut);
      ExpectTunnel(kind, rules);
    }
}

TEST(Socks, RepliesMayBeShortOrHaveBytesOfTheTunnelBehind) {
  for (const Kind kind : kKinds) {
    SocksRules rules = RulesFor(kind);
    rules.shortReplies = true;
    ExpectTunnel(kind, rules);
    rules.shortReplies = false;
    rules.early = "220 hello\r\n";
    ExpectTunnel(kind, rules, rules.early);
    rules.early = std::string(60'000, 'e');
    ExpectTunnel(kind, rules, rules.early);
  }
}

TEST(Socks, ProxyMayChooseAnotherMethodThanWasOffered) {
  ExpectTunnel(Kind::V5Auth, RulesFor(Kind::V5));
  ExpectTunnel(Kind::V5, RulesFor(Kind::V5Auth));
}

TEST(Socks, EveryFailureHasItsNumberAndClosesTheSocket) {
  const struct {
    const char* what;
    Kind kind;
    SocksRules rules;
    std::int32_t error;
  } kCases[] = {
      {"version 4 refused", Kind::V4, {.version4Reply = 91}, 9001},
      {"version 5 refused", Kind::V5, {.version5Reply = 5}, 9001},
      {"no method", Kind::V5, {.method = 255}, 9003},
      {"wrong password", Kind::V5Auth, {.method = 2, .user = "me", .password = "other"}, 9002},
      {"closed instead of the reply", Kind::V4, {.closeAt = 0}, 9001},
      {"closed instead of a method", Kind::V5Auth, {.method = 2, .closeAt = 0}, 9003},
      {"closed instead of the login", Kind::V5Auth, {.method = 2, .closeAt = 1}, 9002},
      {"no tunnel",
       Kind::V5Auth,
       {.method = 2, .user = "me", .password = "secret", .closeAt = 2},
       9001},
  };
  for (const auto& f : kCases) {
    SCOPED_TRACE(f.what);
    SocksServer proxy(f.rules);
    SocketCls socket;
    Recorder recorder(socket);
    std::int32_t error = 0;
    ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
    recorder.events.clear();
    EXPECT_FALSE(RunProlog(socket, f.kind, 80, error));
    EXPECT_EQ(error, f.error);
    EXPECT_EQ(socket.LastSocketErr(), f.error);
    EXPECT_EQ(socket.State(), sockClosed);
    EXPECT_EQ(socket.SocketHandle(), 0);
    EXPECT_FALSE(recorder.Saw("Closed") || recorder.Saw("DataArrival"));
  }
}

// Two bytes may be all that a proxy sends; a third tells that the rest is on its way.
TEST(Socks, AReplyIsAwaitedAsFarAsItsOwnLength) {
  const struct {
    std::string first;
    std::string second;  // later than a reply of two bytes is waited for; empty: the end
    std::int32_t error;
  } kCases[] = {
      {"\0"s, "", 9001},
      {"\0\x5A\0"s, "", 9001},
      {"\0\x5A\0"s, "\0\0\0\0\0hello"s, 0},
      {"\0\x5A\0\0"s, "\0"s, 9001},
      {"\0\x5A"s, "hello", 0},
      {"\5\0\0\1"s, "\0\0\0\0\0Phello"s, 0},
      {"\5\0\0\3\3"s, "abc\0Phello"s, 0},
      {"\5\0\0\1\0"s, "", 9001},
  };
  constexpr std::chrono::milliseconds kLate(700);
  for (const auto& c : kCases) {
    SCOPED_TRACE(::testing::PrintToString(c.first));
    std::atomic<bool> taken = false;
    const RunningClock clock([&] { return taken.load(); }, kLate);
    testkit::LoopbackServer proxy([&](testkit::Connection& connection, std::size_t) {
      std::string bytes;
      if (c.first[0] == 5) connection.Read(bytes), connection.Send("\5\0"s);
      connection.Read(bytes);
      connection.Send(c.first);
      connection.AwaitTaken();
      const TimePoint before = Now();
      taken = !c.second.empty();
      while (taken && Now() < before + kLate) std::this_thread::yield();
      connection.Send(c.second);
      if (c.error == 0) connection.ReadToEnd(bytes);
    });
    SocketCls socket;
    Recorder recorder(socket);
    std::int32_t error = 0;
    ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
    EXPECT_EQ(RunProlog(socket, c.first[0] == 5 ? Kind::V5 : Kind::V4, 80, error, ""),
              c.error == 0);
    EXPECT_EQ(error, c.error);
    if (c.error == 0) {
      EXPECT_TRUE(PumpUntil([&] { return recorder.received == "hello"; })) << recorder.received;
    }
  }
}

TEST(Socks, CloseBehindTheReplyReachesTheOwner) {
  BytesServer proxy(
      {{testkit::AwaitBytes(9), testkit::Send("\0\x5A\0\0\0\0\0\0bye"s), testkit::HalfClose()}});
  SocketCls socket;
  Recorder recorder(socket);
  std::int32_t error = 0;
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  ASSERT_TRUE(RunProlog(socket, Kind::V4, 80, error, ""));
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(recorder.received, "bye");
}

TEST(Socks, TheWaitCanBeEnded) {
  const SocksServer proxy({.silentAt = 0});
  std::unique_ptr<SocketCls> socket;
  std::thread stopper;
  const struct {
    const char* name;
    std::function<void()> action;
    std::int32_t error;
  } kCases[] = {
      {"SocksTimeout", [] { AdvanceClockForTests(std::chrono::seconds(30)); }, 10002},
      {"Kill", [&] { socket->Kill(); }, 9999},
      {"another thread", [&] { stopper = std::thread([&] { socket->StopWaiting(); }); }, 9999},
      {"Disconnect", [&] { socket->Disconnect(); }, 10057},
      {"deletion", [&] { socket.reset(); }, 9999},
      {"a second one inside",
       [&] {
         std::int32_t inner = 0;
         RunProlog(*socket, Kind::V4, 80, inner);
         EXPECT_EQ(inner, 10036);
         socket->StopWaiting();
       },
       9999},
  };
  auto& loop = MessageLoop::ForThisThread();
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    socket = std::make_unique<SocketCls>();
    ASSERT_TRUE(ConnectAndWait(*socket, proxy.Port()));
    loop.PostTask([&] { loop.PostTask(c.action); });
    std::int32_t error = 0;
    EXPECT_FALSE(RunProlog(*socket, Kind::V5, 80, error, "", "", "127.0.0.1"));
    EXPECT_EQ(error, c.error);
    if (socket) {
      EXPECT_EQ(socket->SocketHandle(), 0);
    }
  }
  stopper.join();
}

TEST(Socks, WhatCannotBeExpressedIsRefusedBeforeSending) {
  const std::string longText(256, 'x');
  struct {
    Kind kind;
    std::string user, password, host;
    int port;
    std::int32_t error;
  } const cases[] = {
      {Kind::V4a, longText, "", "h", 80, 10022},
      {Kind::V4a, "a\0b"s, "", "h", 80, 10022},
      {Kind::V4a, "", "", "h\0x"s, 80, 10022},
      {Kind::V4a, "", "", "", 80, 10022},
      {Kind::V4, longText, "", "127.0.0.1", 80, 10022},
      {Kind::V5Remote, "", "", longText, 80, 10022},
      {Kind::V5Auth, longText, "", "127.0.0.1", 80, 10022},
      {Kind::V5Auth, "", longText, "127.0.0.1", 80, 10022},
      {Kind::V5, "", "", "127.0.0.1", 65536, 10022},
      {Kind::V5, "", "", "", 80, 59},
  };
  for (const auto& c : cases) {
    SocksServer proxy;
    SocketCls socket;
    std::int32_t error = 0;
    ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
    EXPECT_FALSE(RunProlog(socket, c.kind, c.port, error, c.user, c.password, c.host));
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(socket.SocketHandle(), 0);
    EXPECT_TRUE(proxy.Requests().empty());
  }
}

}  // namespace
}  // namespace netro
