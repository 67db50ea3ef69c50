// What the classes that ask one server share: SOCKS proxies, silence, and ends wherever they wait.
#include <netro/Localization.h>
#include <netro/QueryTimeCLS.h>
#include <netro/WhoIsCls.h>
#include <netro/testkit/TimeReply.h>

#include "DnsTestKit.h"
#include "HttpTestKit.h"
#include "SmtpTestKit.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"

namespace netro {
namespace {

constexpr char kHere[] = "127.0.0.1";
constexpr char kNeverReads[] = "127.0.0.2";

struct Peer {
  std::shared_ptr<void> server;
  int port;
};

template <class Server, class... Arguments>
Peer Serving(Arguments&&... arguments) {
  auto server = std::make_shared<Server>(std::forward<Arguments>(arguments)...);
  return {server, server->Port()};
}

// A call that waits for something, until the test ends it.
struct Scene {
  std::string waitsFor;
  std::shared_ptr<void> peers;
  std::string host;
  int port;
  std::function<bool()> reached;
  std::int32_t step = 0;  // of a mail session
};

template <class Client>
using Places = std::vector<std::function<Scene(Client& client)>>;

// How a class is used, and what is its own.
template <class Client>
struct Asks;

struct AsksForBytes {
  static constexpr int kFirstSocks = 1;  // the number of its kind of proxy
  static constexpr char kPart[] = "12";  // what is no answer yet

  static std::string RefusalBy(int /*proxy*/, std::int32_t number) {
    return SocketErrorText(number);
  }
  static Peer Serve(const std::string& reply) {
    return Serving<BytesServer>(std::vector<Script>{{testkit::Send(reply), HalfClose()}});
  }
};

template <>
struct Asks<QueryTimeCLS> : AsksForBytes {
  static inline const std::string kReply = Big32(kStampOf2000);

  static void Prepare(QueryTimeCLS& time) {
    time.UseUDP(false);
    time.Timeout(10);
  }
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
struct Asks<WhoIsCls> : AsksForBytes {
  static inline const std::string kReply = "answer";

  static void Prepare(WhoIsCls& who) { who.Timeout(10); }
  static bool Ask(WhoIsCls& who, const std::string& host, int port) {
    who.Port(port);
    static const std::string large(16 << 20, 'q');
    return who.WhoIs(host, host == kNeverReads ? large : "name.test");
  }
  static bool IsGood(const WhoIsCls& who) { return who.Result() == kReply; }
  static std::string Kept(const WhoIsCls& who) { return who.Result(); }
  static Places<WhoIsCls> Scenes();
};

struct AsksByName {
  static constexpr int kFirstSocks = 1;

  static std::string RefusalBy(int proxy, std::int32_t number) {
    return GetMessageText(number, {kHere, std::to_string(proxy)});
  }
  static std::string Kept(const auto&) { return {}; }
};

template <>
struct Asks<HTTPCls> : AsksByName {
  static constexpr int kFirstSocks = ProxySocks4;
  static constexpr char kPart[] = "HTTP";
  static inline const std::string kReply;
  static inline std::string text;

  static Peer Serve(const std::string&) {
    auto server = std::make_shared<HttpServer>();
    server->On("/", [](const HttpRequest& request) {
      EXPECT_EQ(request.target + request.Field("Proxy-Authorization"), "/");
      return HttpServer::Answer("200 OK\r\nContent-Type: text/x\r\n", "hello");
    });
    return {server, server->Port()};
  }
  static void Prepare(HTTPCls&) {}
  static bool Ask(HTTPCls& http, const std::string& host, int port) {
    http.URL("http://" + host + ":" + std::to_string(port) + "/");
    text = Query(http);
    return text.ends_with("\r\n\r\nhello");
  }
  static bool IsGood(const HTTPCls& http) { return http.HTTPResult() == 200; }
  static Places<HTTPCls> Scenes();
};

template <>
struct Asks<QueryDNSCLS> : AsksByName {
  static constexpr char kPart[] = "\0";
  static inline const std::string kReply;

  static Peer Serve(const std::string&) {
    return Serving<DnsServer>(Replying([](auto& reply) { reply.Answer(HostRecord(1)); }));
  }
  static void Prepare(QueryDNSCLS& dns) { dns.UseUDP(false); }
  static bool Ask(QueryDNSCLS& dns, const std::string& host, int port) {
    PointAt(dns, port);
    dns.DNSServer(host);
    return dns.QueryDNS() == 0;
  }
  static bool IsGood(const QueryDNSCLS& dns) { return dns.CountAN() == 1; }
  static Places<QueryDNSCLS> Scenes();
};

template <>
struct Asks<SMTPCls> : AsksByName {
  static inline const std::string kReply;

  static Peer Serve(const std::string&) { return Serving<SmtpServer>(); }
  static void Prepare(SMTPCls& smtp) {
    smtp.SenderHostName("me.test");
    smtp.ProtocolLevel(pl_standard);
  }
  static bool Ask(SMTPCls& smtp, const std::string& host, int port) {
    smtp.ReceiverHostName(host);
    smtp.Port(port);
    static const std::string large(16 << 20, 'x');
    return smtp.SMTP("from@me.test", "to@you.test", host == kNeverReads ? large : "text");
  }
  static bool IsGood(const SMTPCls& smtp) { return smtp.StepID() == SMTP_STEP_DONE; }
  static Places<SMTPCls> Scenes();
};

// --- what each kind of SOCKS proxy is sent by a client whose settings have arrived there

struct SocksKind {
  int type;  // as all classes number the kinds
  bool remoteNames = false;
  SocksRules rules{};  // of the user "user" with the password "secret"
  std::vector<std::string> requests{};
};

/// For the server `name`, or 127.0.0.1, at a port of this machine.
std::vector<SocksKind> SocksKinds(const std::string& name, int serverPort) {
  const std::string port = {static_cast<char>(serverPort / 256), static_cast<char>(serverPort)};
  const std::string local = "\x7f\0\0\x01"s;
  const std::string toAddress = "\x05\x01\0\x01"s + local + port;
  const std::string toName = "\x05\x01\0\x03"s + static_cast<char>(name.size()) + name + port;
  const std::string none = "\x05\x01\0"s, byPassword = "\x05\x02\0\x02"s;
  const std::string login = "\x01\x04user\x06secret"s;
  SocksRules open, closed;
  closed.method = 2;
  closed.user = "user";
  closed.password = "secret";
  return {{1, false, open, {"\x04\x01"s + port + local + "user\0"s}},
          {1, true, open, {"\x04\x01"s + port + "\0\0\0\x01user\0"s + name + "\0"s}},
          {2, false, open, {none, toAddress}},
          {2, true, open, {none, toName}},
          {3, false, closed, {byPassword, login, toAddress}},
          {3, true, closed, {byPassword, login, toName}}};
}

// --- where calls wait

std::shared_ptr<DnsServer> SilentDns(auto& client) {
  auto dns = std::make_shared<DnsServer>(KeepSilent);
  client.DNSURL(UrlOf(*dns));
  return dns;
}

template <class Client>
Scene WaitForAddress(Client& client) {
  auto dns = SilentDns(client);
  return {"the server's address", dns, "name.test", 37, [=] { return dns->QueryCount() > 0; },
          SMTP_STEP_CONNECT};
}

template <class Client>
Scene WaitForConnection(Client&) {
  auto full = std::make_shared<HangingPort>();
  return {"the connection", full, kHere, full->Port(), [] { return true; }, SMTP_STEP_CONNECT};
}

template <class Client>
void UseSocks(Client& client, int kind, int port) {
  using Kind = decltype(client.ProxyType());
  client.ProxyType(static_cast<Kind>(Asks<Client>::kFirstSocks + kind - 1));
  client.ProxyURL(kHere);
  client.ProxyPort(port);
}

template <class Client>
Scene WaitForProxy(Client& client) {
  auto proxy = std::make_shared<SocksServer>(SocksRules{.silentAt = 1});
  UseSocks(client, 2, proxy->Port());
  return {"the proxy", proxy, kHere, 37, [=] { return proxy->Requests().size() == 2; },
          SMTP_STEP_SOCKS};
}

template <class Client>
Scene WaitForAnswer(Client& client) {
  const std::string part(Asks<Client>::kPart, std::size(Asks<Client>::kPart) - 1);
  auto server =
      std::make_shared<BytesServer>(std::vector<Script>{{testkit::Send(part), testkit::Stay()}});
  return {"the answer", server, kHere, server->Port(), [=, &client] {
            const bool keeps = std::is_same_v<Client, WhoIsCls>;
            return server->Connections() > 0 && (!keeps || Asks<Client>::Kept(client) == part);
          }};
}

// The question does not fit into the system's buffers.
template <class Client>
Scene WaitForSending(Client&) {
  const auto ignore = [](Connection& connection, std::size_t) {
    if (std::is_same_v<Client, SMTPCls>) AcceptUpToData(connection);
    connection.Pause(24h);
  };
  auto server = std::make_shared<LoopbackServer>(ignore, 0, kNeverReads);
  return {"the question to be sent", server, kNeverReads, server->Port(),
          [] { return SocketModule::ForThread()->SendBlocked(); }, SMTP_STEP_SENDDATA};
}

template <class Client>
Scene WaitForDatagram(Client& client) {
  client.UseUDP(true);
  auto server = std::make_shared<DnsServer>(KeepSilent);
  return {"a datagram", server, kHere, server->Port(), [=] { return server->QueryCount() > 0; }};
}

Scene WaitForReference(QueryTimeCLS& time) {
  time.UseUDP(true);
  auto dns = SilentDns(time);
  const auto tell = [dns](const auto&) -> Replies { return {SecondaryReply().Bytes()}; };
  auto server = std::make_shared<DatagramServer>(tell);
  return {"the reference's name", server, kHere, server->Port(),
          [=] { return dns->QueryCount() > 0; }};
}

Scene WaitForExchanger(SMTPCls& smtp) {
  Scene scene = WaitForAddress(smtp);
  scene.host.clear();
  scene.step = SMTP_STEP_AUTODNS;
  return scene;
}

Scene WaitForReply(std::size_t place) {
  auto silent = std::make_shared<std::atomic<bool>>(false);
  auto server = std::make_shared<SmtpServer>([=](const std::string& command) -> Answer {
    if (command != kDialogue[place]) return SmtpServer::Politely(command);
    *silent = true;
    return {"25", After::Stay};
  });
  return {kDialogue[place], server,        kHere, server->Port(), [=] { return silent->load(); },
          kSteps[place]};
}

Places<QueryTimeCLS> Asks<QueryTimeCLS>::Scenes() {
  return {WaitForAddress<QueryTimeCLS>, WaitForConnection<QueryTimeCLS>,
          WaitForProxy<QueryTimeCLS>,   WaitForAnswer<QueryTimeCLS>,
          WaitForDatagram<QueryTimeCLS>, WaitForReference};
}
Places<WhoIsCls> Asks<WhoIsCls>::Scenes() {
  return {WaitForAddress<WhoIsCls>, WaitForConnection<WhoIsCls>, WaitForProxy<WhoIsCls>,
          WaitForSending<WhoIsCls>, WaitForAnswer<WhoIsCls>};
}
Places<HTTPCls> Asks<HTTPCls>::Scenes() {
  return {WaitForAddress<HTTPCls>, WaitForConnection<HTTPCls>, WaitForProxy<HTTPCls>,
          WaitForAnswer<HTTPCls>};
}
Places<QueryDNSCLS> Asks<QueryDNSCLS>::Scenes() {
  return {WaitForConnection<QueryDNSCLS>, WaitForProxy<QueryDNSCLS>, WaitForAnswer<QueryDNSCLS>,
          WaitForDatagram<QueryDNSCLS>};
}
Places<SMTPCls> Asks<SMTPCls>::Scenes() {
  Places<SMTPCls> places = {WaitForExchanger, WaitForAddress<SMTPCls>, WaitForConnection<SMTPCls>,
                            WaitForProxy<SMTPCls>, WaitForSending<SMTPCls>};
  for (std::size_t place = 0; place < kDialogue.size(); ++place)
    places.emplace_back([place](SMTPCls&) { return WaitForReply(place); });
  return places;
}

// --- what came of a call

template <class Client>
void ExpectError(const Client& client, std::int32_t number, const std::string& text, std::int32_t) {
  EXPECT_EQ(client.LastErr(), number);
  if constexpr (std::is_same_v<Client, HTTPCls>) {
    EXPECT_EQ(Asks<HTTPCls>::text + std::to_string(client.HTTPResult()), text + "0");
  } else {
    EXPECT_EQ(client.LastErrMsg(), text);
  }
}
void ExpectError(const SMTPCls& smtp, std::int32_t number, const std::string& text,
                 std::int32_t step) {
  const std::string name = smtp.GetSMTPStepName(step);
  const bool cancelled = number == 9999;
  EXPECT_EQ(smtp.StepID(), step);
  EXPECT_EQ(smtp.Result(), number);
  EXPECT_EQ(smtp.ResultMessage(), cancelled ? "Canceled while '" + name + "'." : text);
  EXPECT_TRUE(cancelled || smtp.LastBuffer() == text);
  EXPECT_TRUE(smtp.Protocol().ends_with(cancelled ? smtp.ResultMessage() : "Command Canceled"));
}

// Another call of the object while one runs.
template <class Client>
void ExpectRefused(Client& client) {
  const std::int32_t error = client.LastErr();
  EXPECT_FALSE(Asks<Client>::Ask(client, kHere, 37));
  EXPECT_EQ(client.LastErr(), (std::is_same_v<Client, HTTPCls>) ? 10036 : error);
  if constexpr (requires { client.DNSLookup(""); }) {
    EXPECT_EQ(client.DNSLookup("localhost"), "");
  }
}
void ExpectRefused(QueryDNSCLS& dns) {
  const std::int32_t error = dns.LastErr();
  bool flags[] = {true, true};
  EXPECT_EQ(dns.QueryDNS(&flags[0], &flags[1]), 10036);
  EXPECT_EQ(dns.QueryZone(), 10036);
  EXPECT_EQ(dns.LastErr(), error);
  EXPECT_TRUE(flags[0] && flags[1]);
}
void ExpectRefused(SMTPCls& smtp) {
  const std::string protocol = smtp.Protocol();
  EXPECT_FALSE(smtp.SMTP("a\r\n", "b", "c"));
  EXPECT_EQ(smtp.Protocol(), protocol);
  EXPECT_EQ(smtp.StepID(), SMTP_STEP_NOERROR);
}

template <class Client>
struct ServerCalls : testing::Test {
  using How = Asks<Client>;

  ServerCalls() { Renew(); }

  void Renew() {
    DefaultHostLookup().Clear();
    client_ = std::make_unique<Client>();
    How::Prepare(*client_);
  }

  bool Ask(const Scene& scene) { return How::Ask(*client_, scene.host, scene.port); }
  void ExpectWorks(Client& client) {
    const Peer peer = How::Serve(How::kReply);
    How::Prepare(client);
    client.ProxyType({});
    client.StopWaiting();  // of before, and not of now
    EXPECT_TRUE(How::Ask(client, kHere, peer.port));
    EXPECT_TRUE(How::IsGood(client));
  }

  void TimeOut(int timeout, Scene (*place)(Client& client)) {
    SCOPED_TRACE(timeout);
    Renew();
    client_->Timeout(static_cast<std::int16_t>(timeout));
    const Scene scene = place(*client_);
    const RunningClock clock(scene.reached);
    const Takes time(seconds(std::max(timeout, 0)), seconds(std::max(timeout, 0) + 5));
    EXPECT_FALSE(Ask(scene));
    ExpectError(*client_, 10002, "Command Timed Out", 0);
  }

  // Ends a call in each place by `end`; without an object afterwards it has been deleted.
  void EndEverywhere(const std::function<void()>& end) {
    for (const auto& place : How::Scenes()) {
      Renew();
      const SystemRoot root;
      const Scene scene = place(*client_);
      SCOPED_TRACE(scene.waitsFor);
      PostWhen(scene.reached, end);
      EXPECT_FALSE(Ask(scene));
      if (thread_.joinable()) thread_.join();
      if (!client_) continue;
      ExpectError(*client_, 9999, "Command Canceled", scene.step);
      const bool keeps = std::is_same_v<Client, WhoIsCls> && scene.waitsFor == "the answer";
      EXPECT_EQ(How::Kept(*client_), keeps ? "12" : "");
      ExpectWorks(*client_);  // what ended a call does not end the next one
    }
  }

  void Meanwhile() {
    const std::string kept = How::Kept(*client_);
    ExpectRefused(*client_);
    EXPECT_EQ(How::Kept(*client_), kept);
    Client other;
    ExpectWorks(other);
    client_->StopWaiting();
  }

  bool AskThrough(const SocksServer& proxy, const SocksKind& kind, int port) {
    UseSocks(*client_, kind.type, proxy.Port());
    client_->ProxyUser("user");
    client_->ProxyPassword("secret");
    client_->ProxyUseRemoteDNS(kind.remoteNames);
    return How::Ask(*client_, kind.remoteNames ? "name.test" : kHere, port);
  }

  void ExpectRefusal(const SocksKind& kind, const SocksRules& rules, std::int32_t number) {
    SocksServer proxy(rules);
    EXPECT_FALSE(AskThrough(proxy, kind, 37));
    ExpectError(*client_, number, How::RefusalBy(proxy.Port(), number), SMTP_STEP_SOCKS);
  }

  void EachKindOfProxy() {
    const Peer server = How::Serve(How::kReply);
    for (const SocksKind& kind : SocksKinds("name.test", server.port)) {
      SCOPED_TRACE(std::to_string(kind.type) + (kind.remoteNames ? " with the name" : ""));
      SocksServer proxy(kind.rules);
      EXPECT_TRUE(AskThrough(proxy, kind, server.port));
      EXPECT_EQ(proxy.Requests(), kind.requests);
      EXPECT_TRUE(How::IsGood(*client_));
      if constexpr (std::is_same_v<Client, SMTPCls>) {
        const std::string port = std::to_string(proxy.Port());
        EXPECT_TRUE(client_->Protocol().starts_with("[Proxy SOCKS 127.0.0.1:" + port + "] OK\r\n"));
        EXPECT_EQ(client_->Protocol().find("secret"), std::string::npos);
      }
      SocksRules early = kind.rules;
      if (!How::kReply.empty()) {  // the reply may begin with that of the proxy
        early.early = How::kReply.substr(0, 3);
        SocksServer eager(early);
        const Peer rest = How::Serve(How::kReply.substr(3));
        EXPECT_TRUE(AskThrough(eager, kind, rest.port));
        EXPECT_TRUE(How::IsGood(*client_));
      }
      early.version4Reply = 91;
      early.version5Reply = 5;
      ExpectRefusal(kind, early, 9001);
      if (kind.type != 3) continue;
      ExpectRefusal(kind, {.method = 2}, 9002);
      ExpectRefusal(kind, {.method = 255}, 9003);
    }
  }

  std::unique_ptr<Client> client_;
  std::thread thread_;
};

using Clients = testing::Types<QueryTimeCLS, WhoIsCls, HTTPCls, QueryDNSCLS, SMTPCls>;
TYPED_TEST_SUITE(ServerCalls, Clients);

template <class Client>
using TimedServerCalls = ServerCalls<Client>;
using TimedClients = testing::Types<QueryTimeCLS, WhoIsCls>;
TYPED_TEST_SUITE(TimedServerCalls, TimedClients);

TYPED_TEST(TimedServerCalls, EndBySilence) {
  for (const int timeout : {10, 1, 0, -1}) {
    this->TimeOut(timeout, WaitForAnswer<TypeParam>);
    if constexpr (std::is_same_v<TypeParam, QueryTimeCLS>)
      this->TimeOut(timeout, WaitForDatagram<TypeParam>);
  }
  this->TimeOut(10, WaitForProxy<TypeParam>);
}

// There is no such kind; and there is no proxy.
TYPED_TEST(TimedServerCalls, ProxiesThatCannotBe) {
  SocksServer unasked;
  EXPECT_FALSE(this->AskThrough(unasked, {4}, 37));
  EXPECT_EQ(this->client_->LastErr(), 10022);
  UseSocks(*this->client_, 1, unasked.Port());
  this->client_->ProxyURL("");
  EXPECT_FALSE(Asks<TypeParam>::Ask(*this->client_, kHere, 37));
  EXPECT_EQ(this->client_->LastErr(), 10022);
  EXPECT_EQ(unasked.Connections(), 0u);
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
