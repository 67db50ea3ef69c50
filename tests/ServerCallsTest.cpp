// What QueryTimeCLS and WhoIsCls have in common, which ask one server: silence, SOCKS proxies, and
// how the caller ends a call wherever it waits.

#include <netro/QueryTimeCLS.h>
#include <netro/WhoIsCls.h>
#include <poll.h>

#include "DnsTestKit.h"
#include "SocksKinds.h"
#include "SystemRoot.h"
#include "socket/HostLookup.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/DatagramServer.h"
#include "tests/peers/TimeReply.h"

namespace netro {
namespace {

constexpr char kHere[] = "127.0.0.1";

// A call that waits for something, until the test ends it.
struct Scene {
  std::string waitsFor;
  std::shared_ptr<void> peers;
  std::string host;
  int port;
  std::function<bool()> reached;
};

template <class Client>
using Places = std::vector<Scene (*)(Client& client)>;

template <class Client>
struct Asks;

template <>
struct Asks<QueryTimeCLS> {
  using ProxyKind = TimeProxyTypeEnum;
  static constexpr char kKeeps[] = "";
  static inline const std::string kReply = peers::Big32(peers::kStampOf2000);

  static void Prepare(QueryTimeCLS& time) { time.UseUDP(false); }
  static bool Ask(QueryTimeCLS& time, const std::string& host, int port) {
    time.Server(host);
    time.Port(port);
    return time.QueryTime();
  }
  static bool IsGood(const QueryTimeCLS& time) { return time.DateTime() == 36'526; }
  static std::string Kept(const QueryTimeCLS&) { return {}; }
  static Places<QueryTimeCLS> Scenes();
};

template <>
struct Asks<WhoIsCls> {
  using ProxyKind = WhoIsProxyTypeEnum;
  static constexpr char kKeeps[] = "12";
  static inline const std::string kReply = "answer";

  static void Prepare(WhoIsCls&) {}
  static bool Ask(WhoIsCls& who, const std::string& host, int port) {
    who.Port(port);
    static const std::string large(16 << 20, 'q');
    return who.WhoIs(host, host == "127.0.0.2" ? large : "name.test");
  }
  static bool IsGood(const WhoIsCls& who) { return who.Result() == kReply; }
  static std::string Kept(const WhoIsCls& who) { return who.Result(); }
  static Places<WhoIsCls> Scenes();
};

template <class Client>
Script AnswerFrom(std::size_t at = 0) {
  return {peers::Send(Asks<Client>::kReply.substr(at)), peers::HalfClose()};
}

std::shared_ptr<DnsServer> SilentDns(auto& client) {
  auto dns = std::make_shared<DnsServer>(KeepSilent);
  client.DNSURL(kHere + (":" + std::to_string(dns->Port())));
  return dns;
}

template <class Client>
Scene WaitForAddress(Client& client) {
  auto dns = SilentDns(client);
  return {"the server's address", dns, "name.test", 37, [=] { return dns->QueryCount() > 0; }};
}

template <class Client>
Scene WaitForConnection(Client&) {
  auto full = std::make_shared<peers::HangingPort>();
  return {"the connection", full, kHere, full->Port(), [] { return true; }};
}

template <class Client>
Scene WaitForProxy(Client& client) {
  SocksRules rules;
  rules.silentAt = 1;
  auto proxy = std::make_shared<SocksServer>(rules);
  client.ProxyType(static_cast<Asks<Client>::ProxyKind>(2));
  client.ProxyURL(kHere);
  client.ProxyPort(proxy->Port());
  return {"the proxy", proxy, kHere, 37, [=] { return proxy->Requests().size() == 2; }};
}

template <class Client>
Scene WaitForAnswer(Client& client) {
  auto server =
      std::make_shared<BytesServer>(std::vector<Script>{{peers::Send("12"), peers::Stay()}});
  return {"the answer", server, kHere, server->Port(), [=, &client] {
            return server->Connections() > 0 && Asks<Client>::Kept(client) == Asks<Client>::kKeeps;
          }};
}

// A server that never reads: the query does not fit into the system's buffers.
Scene WaitForSending(WhoIsCls&) {
  const auto ignore = [](peers::Connection& connection, std::size_t) {
    pollfd stop{connection.StopFd(), POLLIN, 0};
    poll(&stop, 1, -1);
  };
  auto server = std::make_shared<peers::LoopbackServer>(ignore, 0, "127.0.0.2");
  return {"the query to be sent", server, "127.0.0.2", server->Port(),
          [=] { return server->Connections() > 0; }};
}

Scene WaitForDatagram(QueryTimeCLS& time) {
  time.UseUDP(true);
  auto server =
      std::make_shared<DatagramServer>([](const auto&) { return DatagramServer::Replies(); });
  return {"a datagram", server, kHere, server->Port(), [=] { return server->Count() > 0; }};
}

Scene WaitForReference(QueryTimeCLS& time) {
  time.UseUDP(true);
  auto dns = SilentDns(time);
  const auto tell = [dns](const auto&) -> DatagramServer::Replies {
    return {peers::SecondaryReply().Bytes()};
  };
  auto server = std::make_shared<DatagramServer>(tell);
  return {"the reference's name", server, kHere, server->Port(),
          [=] { return dns->QueryCount() > 0; }};
}

Places<QueryTimeCLS> Asks<QueryTimeCLS>::Scenes() {
  return {WaitForAddress, WaitForConnection, WaitForProxy,
          WaitForAnswer,  WaitForDatagram,   WaitForReference};
}

Places<WhoIsCls> Asks<WhoIsCls>::Scenes() {
  return {WaitForAddress, WaitForConnection, WaitForProxy, WaitForSending, WaitForAnswer};
}

template <class Client>
class ServerCalls : public testing::Test {
 protected:
  using How = Asks<Client>;

  ServerCalls() { Renew(); }

  void Renew() {
    DefaultHostLookup().Clear();
    client_ = std::make_unique<Client>();
    client_->Timeout(10);
    How::Prepare(*client_);
  }

  bool Ask(const Scene& scene) { return How::Ask(*client_, scene.host, scene.port); }
  void ExpectError(std::int32_t number, const std::string& text) {
    EXPECT_EQ(client_->LastErr(), number);
    EXPECT_EQ(client_->LastErrMsg(), text);
  }
  // What ended a call does not end the next one.
  void ExpectWorks() {
    BytesServer server({AnswerFrom<Client>()});
    How::Prepare(*client_);
    client_->ProxyType({});
    EXPECT_TRUE(How::Ask(*client_, kHere, server.Port())) << client_->LastErrMsg();
    EXPECT_TRUE(How::IsGood(*client_));
  }

  void TimeOut(int timeout, Scene (*place)(Client& client)) {
    SCOPED_TRACE(timeout);
    Renew();
    client_->Timeout(static_cast<std::int16_t>(timeout));
    const Scene scene = place(*client_);
    const RunningClock clock(scene.reached);
    const TimePoint before = Now();
    EXPECT_FALSE(Ask(scene));
    ExpectError(10002, "Command Timed Out");
    EXPECT_GE(Now() - before, seconds(std::max(timeout, 0)));
    EXPECT_LT(Now() - before, seconds(std::max(timeout, 0) + 5));
  }

  // Ends a call in each place by `end`; without an object afterwards it has been deleted.
  void EndEverywhere(const std::function<void()>& end) {
    for (const auto place : How::Scenes()) {
      Renew();
      const SystemRoot root;
      const Scene scene = place(*client_);
      SCOPED_TRACE(scene.waitsFor);
      PostWhen(scene.reached, end);
      EXPECT_FALSE(Ask(scene));
      if (thread_.joinable()) thread_.join();
      if (!client_) continue;
      ExpectError(9999, "Command Canceled");
      EXPECT_EQ(How::Kept(*client_), scene.waitsFor == "the answer" ? How::kKeeps : "");
      ExpectWorks();
    }
  }

  void Meanwhile() {
    const std::int32_t error = client_->LastErr();
    const std::string kept = How::Kept(*client_);
    EXPECT_FALSE(How::Ask(*client_, kHere, 37));
    if constexpr (requires { client_->DNSLookup(""); }) {
      EXPECT_EQ(client_->DNSLookup("localhost"), "");
    }
    EXPECT_EQ(client_->LastErr(), error);
    EXPECT_EQ(How::Kept(*client_), kept);
    BytesServer server({AnswerFrom<Client>()});
    Client other;
    How::Prepare(other);
    EXPECT_TRUE(How::Ask(other, kHere, server.Port()));
    EXPECT_TRUE(How::IsGood(other));
    client_->StopWaiting();
  }

  bool AskThrough(const SocksServer& proxy, int kind, bool remoteNames, int port) {
    client_->ProxyURL(kHere);
    client_->ProxyUser("user");
    client_->ProxyPassword("secret");
    client_->ProxyPort(proxy.Port());
    client_->ProxyType(static_cast<typename How::ProxyKind>(kind));
    client_->ProxyUseRemoteDNS(remoteNames);
    return How::Ask(*client_, remoteNames ? "name.test" : kHere, port);
  }

  void EachKindOfProxy() {
    BytesServer server({AnswerFrom<Client>()});
    for (const SocksKind& kind : SocksKinds("name.test", server.Port())) {
      SCOPED_TRACE(std::to_string(kind.type) + (kind.remoteNames ? " with the name" : ""));
      SocksServer proxy(kind.rules);
      EXPECT_TRUE(AskThrough(proxy, kind.type, kind.remoteNames, server.Port()));
      EXPECT_EQ(proxy.Requests(), kind.requests);
      EXPECT_TRUE(How::IsGood(*client_));
      SocksRules early = kind.rules;
      early.early = How::kReply.substr(0, 3);
      SocksServer eager(early);
      BytesServer rest({AnswerFrom<Client>(3)});
      EXPECT_TRUE(AskThrough(eager, kind.type, kind.remoteNames, rest.Port()));
      EXPECT_TRUE(How::IsGood(*client_)) << "the reply may begin with the proxy's";
      early.version4Reply = 91;
      early.version5Reply = 5;
      SocksServer refusing(early);
      EXPECT_FALSE(AskThrough(refusing, kind.type, kind.remoteNames, server.Port()));
      ExpectError(9001,
                  "Proxy SOCKS. The connection request has failed or the proxy server has "
                  "rejected it.");
    }
    SocksServer unasked;
    EXPECT_FALSE(AskThrough(unasked, 4, false, server.Port())) << "there is no such kind";
    EXPECT_EQ(client_->LastErr(), 10022);
    client_->ProxyType(static_cast<typename How::ProxyKind>(1));
    client_->ProxyURL("");
    EXPECT_FALSE(How::Ask(*client_, kHere, server.Port()));
    EXPECT_EQ(client_->LastErr(), 10022);
    EXPECT_EQ(unasked.Connections(), 0u);
  }

  std::unique_ptr<Client> client_;
  std::thread thread_;
};

using Clients = testing::Types<QueryTimeCLS, WhoIsCls>;
TYPED_TEST_SUITE(ServerCalls, Clients);

TYPED_TEST(ServerCalls, SilenceEndsThem) {
  for (const int timeout : {10, 1, 0, -1}) this->TimeOut(timeout, WaitForAnswer);
  this->TimeOut(10, WaitForProxy);
}

TYPED_TEST(ServerCalls, EachKindOfProxyIsAskedInItsWay) { this->EachKindOfProxy(); }

TYPED_TEST(ServerCalls, EndInEachPlace) {
  this->EndEverywhere([&] { this->client_->StopWaiting(); });
  this->EndEverywhere([&] { this->thread_ = std::thread([&] { this->client_->Kill(); }); });
  this->EndEverywhere([&] { this->client_.reset(); });
}

TYPED_TEST(ServerCalls, MeanwhileOtherCallsAreRefusedAndOtherObjectsWork) {
  this->EndEverywhere([&] { this->Meanwhile(); });
}

}  // namespace
}  // namespace netro
