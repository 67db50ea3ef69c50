// The SOCKS prologs: exact requests, every outcome, replies cut anywhere, and what follows them.
#include <gtest/gtest.h>

#include <thread>

#include "SocketTestKit.h"
#include "peers/BytesServer.h"
#include "peers/SocksServer.h"
#include "platform/Clock.h"

namespace netro {
namespace {

using peers::BytesServer;
using peers::SocksRules;
using peers::SocksServer;
using std::string_literals::operator""s;

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

std::string PortBytes(int port) {
  return {static_cast<char>(port / 256), static_cast<char>(port & 255)};
}

SocksRules RulesFor(Kind kind) {
  SocksRules rules;
  rules.method = kind == Kind::V5Auth ? 2 : 0;
  rules.user = "me";
  rules.password = "secret";
  return rules;
}

class Target {
 public:
  int Port() const { return server_.Port(); }

 private:
  BytesServer server_{{{peers::AwaitText("ping"), peers::Send("pong"), peers::Stay()}}};
};

// Prolog, then a round trip through the tunnel.
void ExpectTunnel(Kind kind, const SocksRules& rules, const std::string& early = "") {
  Target target;
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
}

TEST(Socks, RequestsAreExact) {
  Target target;
  const std::string port = PortBytes(target.Port());
  struct {
    Kind kind;
    std::vector<std::string> requests;
  } const cases[] = {
      {Kind::V4, {"\x04\x01"s + port + "\x7F\0\0\x01me\0"s}},
      {Kind::V4a, {"\x04\x01"s + port + "\0\0\0\x01me\0localhost\0"s}},
      {Kind::V5, {"\x05\x01\0"s, "\x05\x01\0\x01\x7F\0\0\x01"s + port}},
      {Kind::V5Remote, {"\x05\x01\0"s, "\x05\x01\0\x03\x09localhost"s + port}},
      {Kind::V5Auth,
       {"\x05\x02\0\x02"s, "\x01\x02me\x06secret", "\x05\x01\0\x01\x7F\0\0\x01"s + port}},
  };
  for (const auto& c : cases) {
    SocksServer proxy(RulesFor(c.kind));
    SocketCls socket;
    std::int32_t error = 0;
    ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
    ASSERT_TRUE(RunProlog(socket, c.kind, target.Port(), error)) << error;
    EXPECT_EQ(proxy.Requests(), c.requests);
  }
}

TEST(Socks, RepliesMayBeCutAnywhere) {
  for (const Kind kind : kKinds) {
    for (std::size_t cut = 0; cut < 10; ++cut) {
      SocksRules rules = RulesFor(kind);
      if (cut > 0) rules.cuts = {cut};
      SCOPED_TRACE(cut);
      ExpectTunnel(kind, rules);
    }
  }
}

TEST(Socks, TwoByteRepliesAreEnough) {
  for (const Kind kind : kKinds) {
    SocksRules rules = RulesFor(kind);
    rules.shortReplies = true;
    ExpectTunnel(kind, rules);
  }
}

TEST(Socks, BytesBehindTheReplyBelongToTheTunnel) {
  for (const Kind kind : kKinds) {
    SocksRules rules = RulesFor(kind);
    rules.early = "220 hello\r\n";
    ExpectTunnel(kind, rules, rules.early);
  }
}

TEST(Socks, ProxyMayLeaveAuthenticationOut) {
  SocksRules rules = RulesFor(Kind::V5);
  ExpectTunnel(Kind::V5Auth, rules);
}

TEST(Socks, ProxyMayAskForAPasswordThatWasNotOffered) {
  ExpectTunnel(Kind::V5, RulesFor(Kind::V5Auth));
}

struct Failure {
  const char* what;
  Kind kind;
  SocksRules rules;
  std::int32_t error;
};

SocksRules ClosingAt(Kind kind, std::size_t reply) {
  SocksRules rules = RulesFor(kind);
  rules.closeAt = reply;
  return rules;
}

std::vector<Failure> Failures() {
  SocksRules refused4;
  refused4.version4Reply = 91;
  SocksRules refused5;
  refused5.version5Reply = 5;
  SocksRules noMethod;
  noMethod.method = 255;
  SocksRules wrongPassword = RulesFor(Kind::V5Auth);
  wrongPassword.password = "other";
  return {
      {"version 4 refused", Kind::V4, refused4, 9001},
      {"version 5 refused", Kind::V5, refused5, 9001},
      {"no method", Kind::V5, noMethod, 9003},
      {"wrong password", Kind::V5Auth, wrongPassword, 9002},
      {"closed instead of the reply", Kind::V4, ClosingAt(Kind::V4, 0), 9001},
      {"closed instead of a method", Kind::V5Auth, ClosingAt(Kind::V5Auth, 0), 9003},
      {"closed instead of the login", Kind::V5Auth, ClosingAt(Kind::V5Auth, 1), 9002},
      {"closed instead of the tunnel", Kind::V5Auth, ClosingAt(Kind::V5Auth, 2), 9001},
  };
}

TEST(Socks, EveryFailureHasItsNumberAndClosesTheSocket) {
  for (const Failure& f : Failures()) {
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

TEST(Socks, ShortReplyFailsTheTest) {
  BytesServer proxy({{peers::AwaitBytes(9), peers::Send("\0"s), peers::Close()}});
  SocketCls socket;
  std::int32_t error = 0;
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  EXPECT_FALSE(RunProlog(socket, Kind::V4, 80, error, ""));
  EXPECT_EQ(error, 9001);
}

TEST(Socks, CloseBehindTheReplyReachesTheOwner) {
  BytesServer proxy(
      {{peers::AwaitBytes(9), peers::Send("\0\x5A\0\0\0\0\0\0bye"s), peers::HalfClose()}});
  SocketCls socket;
  Recorder recorder(socket);
  std::int32_t error = 0;
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  ASSERT_TRUE(RunProlog(socket, Kind::V4, 80, error, ""));
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(recorder.received, "bye");
}

class SilentProxy : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(ConnectAndWait(*socket_, proxy_.Port())); }

  std::int32_t RunWith(std::function<void()> action) {
    auto& loop = MessageLoop::ForThisThread();
    loop.PostTask([&loop, action = std::move(action)] { loop.PostTask(action); });
    std::int32_t error = 0;
    EXPECT_FALSE(RunProlog(*socket_, Kind::V5, 80, error, "", "", "127.0.0.1"));
    return error;
  }

  SocksServer proxy_{[] {
    SocksRules rules;
    rules.silentAt = 0;
    return rules;
  }()};
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
};

TEST_F(SilentProxy, TimesOutAfterSocksTimeout) {
  EXPECT_EQ(RunWith([] { AdvanceClockForTests(std::chrono::seconds(30)); }), 10002);
  EXPECT_EQ(socket_->SocketHandle(), 0);
}

TEST_F(SilentProxy, KillAndStopWaitingEndTheWait) {
  EXPECT_EQ(RunWith([&] { socket_->Kill(); }), 9999);
}

TEST_F(SilentProxy, AnotherThreadMayEndTheWait) {
  std::thread stopper;
  EXPECT_EQ(RunWith([&] { stopper = std::thread([&] { socket_->StopWaiting(); }); }), 9999);
  stopper.join();
}

TEST_F(SilentProxy, DisconnectInsideEndsTheWait) {
  EXPECT_EQ(RunWith([&] { socket_->Disconnect(); }), 10057);
}

TEST_F(SilentProxy, DeletionInsideIsSafe) {
  EXPECT_EQ(RunWith([&] { socket_.reset(); }), 9999);
}

TEST_F(SilentProxy, SecondPrologInsideIsRefused) {
  std::int32_t inner = 0;
  EXPECT_EQ(RunWith([&] {
              RunProlog(*socket_, Kind::V4, 80, inner);
              socket_->StopWaiting();
            }),
            9999);
  EXPECT_EQ(inner, 10036);
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
