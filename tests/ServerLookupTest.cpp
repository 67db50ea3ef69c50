// Lookups by name: among forged replies, with servers that fail, by the rules of the system.
#include <netro/SocketCls.h>

#include <random>

#include "DnsTestKit.h"
#include "support/Text.h"
#include "testkit/Sockets.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

std::string Poisoned(DnsReply reply) { return reply.Answer(AddressRecord(66)).Bytes(); }

// Sends from the server's own address and port, so that connected sockets take it, what somebody
// makes who knows the name and all ports, but not the query; and answers in the end.
class Forger {
 public:
  explicit Forger(int forgeries) : forgeries_(forgeries) {
    testkit::BindSocket(socket_, {});
    port = testkit::OwnEndpoint(socket_).port;
    thread_ = std::jthread([this](const std::stop_token& stop) { Serve(stop); });
  }
  ~Forger() {
    thread_.request_stop();
    thread_.join();
    testkit::CloseSocket(socket_);
  }

  int port = 0;
  std::atomic<int> sent{0};
  std::set<int> ids;    // of the queries
  std::set<int> ports;  // where they came from

 private:
  void Serve(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      if (AwaitReadable(socket_, 10)) Attack();
    }
  }

  void Attack() {
    char bytes[512];
    testkit::Endpoint client;
    const auto got = testkit::ReceiveFrom(socket_, bytes, &client);
    if (got <= 12) return;
    const std::string query(bytes, static_cast<std::size_t>(got));
    const int id =
        static_cast<unsigned char>(bytes[0]) * 256 + static_cast<unsigned char>(bytes[1]);
    const int own = client.port;
    ids.insert(id);
    ports.insert(own);
    const auto send = [&](const std::string& reply, int to) {
      client.port = to;
      testkit::SendTo(socket_, reply, &client);
      ++sent;
    };
    for (int i = 0; i < forgeries_; ++i) {
      // Some go where they hurt; a blind forger's hit that port by chance.
      const int to = i % 2'000 == 0 ? own : 1'024 + i * 7 % 64'512;
      const int guess = i % 2 == 0 ? 25 : static_cast<int>(chance_() & 0xFFFF);
      if (to != port && guess != id) send(Poisoned(DnsReply(ToLower(query)).Id(guess)), to);
    }
    send(DnsReply(query).Answer(AddressRecord(1)).Bytes(), own);
  }

  const int forgeries_;
  const int socket_ = testkit::OpenSocket(testkit::Protocol::Udp);
  std::minstd_rand chance_{13};
  std::jthread thread_;
};

struct ServerLookup : testing::Test {
  void SetUp() override { socket_.ClearDNSCache(); }
  void TearDown() override { socket_.ClearDNSCache(); }

  std::string Lookup(int port, const std::string& name = "www.test") {
    socket_.DNSURL("127.0.0.1:" + std::to_string(port));
    return socket_.DNSLookup(name);
  }

  SystemRoot root_;
  SocketCls socket_;
};

TEST_F(ServerLookup, TwoHundredThousandPoisonNoName) {
  constexpr int kNames = 100;
  Forger forger(2'000);  // for each name, so that its lookup does not end by its time
  for (int i = 0; i < kNames; ++i)
    EXPECT_EQ(Lookup(forger.port, "host" + std::to_string(i) + ".test"), "192.0.2.1");
  EXPECT_GT(forger.sent, 190'000);
  EXPECT_GT(forger.ids.size(), 50u) << "identifiers are random";
  EXPECT_GT(forger.ports.size(), 50u) << "each query has a socket of its own";
}

// Each reply fits but for one thing, and the server then keeps silent, or says it over TCP.
TEST_F(ServerLookup, EveryPartOfTheQueryHasToBeRepeated) {
  const std::pair<const char*, std::function<std::string(const std::string&)>> cases[] = {
      {"identifier", [](const std::string& q) { return Poisoned(DnsReply(q).Id(25)); }},
      {"name",
       [](std::string q) { return q[13] = q[13] == 'a' ? 'b' : 'a', Poisoned(DnsReply(q)); }},
      {"type",
       [](std::string q) { return q[q.find('\0', 12) + 2] = TYPE_MX, Poisoned(DnsReply(q)); }},
      {"case",
       [](std::string q) {
         for (std::size_t i = 13; q[i] != '\0'; ++i)
           q[i] = static_cast<char>(q[i] ^ (q[i] >= 'A' ? 32 : 0));
         return Poisoned(DnsReply(q));
       }},
      {"a query", [](const std::string& q) { return Poisoned(DnsReply(q).Flags(0, 0)); }},
      {"cut", [](const std::string& q) { return q.substr(0, 20); }},
  };
  for (const auto& [name, forge] : cases) {
    SCOPED_TRACE(name);
    // Twenty of them are enough to make the server be asked in another way.
    DnsServer server(
        [&](const std::string& query) { return Replies(20, DnsServer::Reply(forge(query))); },
        ReplyingOverTcp([](auto& reply) { reply.Answer(AddressRecord(2)); }));
    socket_.ClearDNSCache();
    EXPECT_EQ(Lookup(server.Port()), "192.0.2.2");
    EXPECT_EQ(server.Connections(), 1u);
  }
}

TEST_F(ServerLookup, LettersAreMixedAndExtendedQueriesTaken) {
  DnsServer server([](const std::string& query) -> Replies {
    const bool extended = query[11] == 1;
    return {
        (extended ? DnsReply(query).Code(1) : DnsReply(query).Answer(AddressRecord(3))).Bytes()};
  });
  const std::string name = "a-rather-long-name-to-mix.test";
  EXPECT_EQ(Lookup(server.Port(), name), "192.0.2.3");
  const auto queries = server.Queries();
  ASSERT_EQ(queries.size(), 2u) << "asked again in the way that the server understands";
  EXPECT_NE(queries[0].substr(12), ToLower(queries[0]).substr(12));
  EXPECT_NE(queries[0].find(dns::Octets({0, 0, 41, 1232 / 256, 1232 % 256})), std::string::npos);
  EXPECT_EQ(Lookup(server.Port(), "other.test"), "192.0.2.3");
  EXPECT_EQ(server.Queries().size(), 3u) << "it is remembered";
}

TEST_F(ServerLookup, APortThatRefusesEndsTheWaitAtOnce) {
  const int closed = DnsServer(KeepSilent).Port();
  const Takes time(seconds(0), std::chrono::seconds(1));
  EXPECT_EQ(Lookup(closed), "");
  EXPECT_EQ(socket_.DNSLastErr(), 11002);
  QueryDNSCLS query;
  PointAt(query, closed);
  query.RetryCount(3);
  EXPECT_EQ(query.QueryDNS(), 10061);
}

// Its first reply comes when the second try has begun: each try has an identifier of its own.
TEST_F(ServerLookup, LateRepliesCount) {
  std::atomic<bool> asked = false;
  DnsServer late([&](const std::string& query) -> Replies {
    const TimePoint begun = Now();
    asked = true;
    while (Now() - begun < milliseconds(1600)) std::this_thread::yield();
    return {DnsReply(query).Answer(AddressRecord(4)).Bytes()};
  });
  const RunningClock clock([&] { return asked.load(); }, milliseconds(1700));
  EXPECT_EQ(Lookup(late.Port()), "192.0.2.4");
}

TEST_F(ServerLookup, SilentServersComeLastForAWhile) {
  DnsServer silent(KeepSilent);
  DnsServer good(Replying([](auto& reply) { reply.Answer(AddressRecord(5)); }));
  const RunningClock clock([&] { return silent.QueryCount() > 0 && good.QueryCount() == 0; },
                           milliseconds(1600));
  socket_.DNSURL("127.0.0.1:" + std::to_string(silent.Port()) +
                 ",127.0.0.1:" + std::to_string(good.Port()));
  EXPECT_EQ(socket_.DNSLookup("a.test"), "192.0.2.5");
  EXPECT_EQ(socket_.DNSLookup("b.test"), "192.0.2.5");
  std::thread([&] {
    SocketCls other;
    other.DNSURL(socket_.DNSURL());
    EXPECT_EQ(other.DNSLookup("c.test"), "192.0.2.5");
  }).join();
  EXPECT_EQ(silent.Queries().size(), 1u) << "what one lookup has learnt, the next one knows";
  EXPECT_EQ(good.Queries().size(), 3u);
}

// Servers as they are met: the name's reply depends on how it is asked.
TEST_F(ServerLookup, ServersAreTakenAsTheyAre) {
  const std::string alias = dns::Record(dns::kQuestion, TYPE_CNAME, dns::kQuestion);
  const auto isPlain = [](const std::string& query) { return query[11] == 0; };
  const std::tuple<const char*, DnsServer::Answer, std::string, std::int32_t> cases[] = {
      {"wrong case, then the right one",
       [](const std::string& q) -> Replies {
         std::string other = q;  // never the one asked, which is in lower case by chance sometimes
         other[13] ^= 0x20;
         return {DnsReply(other).Answer(AddressRecord(66)).Bytes(),
                 DnsReply(q).Answer(AddressRecord(1)).Bytes()};
       },
       "192.0.2.1", 0},
      {"a flood, then the right one",
       [](const std::string& q) {
         Replies replies(100, DnsServer::Reply(DnsReply(q).Id(25).Bytes()));
         replies.emplace_back(DnsReply(q).Answer(AddressRecord(1)).Bytes());
         return replies;
       },
       "192.0.2.1", 0},
      {"extended queries fail",
       [=](const std::string& q) -> Replies {
         return {(isPlain(q) ? DnsReply(q).Answer(AddressRecord(1)) : DnsReply(q).Code(2)).Bytes()};
       },
       "192.0.2.1", 0},
      {"another version is wanted",
       [=](const std::string& q) -> Replies {
         if (isPlain(q)) return {DnsReply(q).Answer(AddressRecord(1)).Bytes()};
         const std::string opt = dns::Octets({0, 0, 41, 4, 208, 1, 0, 0, 0, 0, 0});
         return {DnsReply(q).Additional(opt).Bytes()};
       },
       "192.0.2.1", 0},
      {"another class", Replying([](auto& reply) {
         reply.Answer(dns::Record(dns::kQuestion, TYPE_A, dns::Octets({6, 6, 6, 6}), 300, 3));
       }),
       "", 11004},
      {"a circle of aliases", Replying([=](auto& reply) { reply.Answer(alias); }), "", 11002},
  };
  for (const auto& [name, answer, result, error] : cases) {
    SCOPED_TRACE(name);
    DnsServer server(answer,
                     [](Connection& connection, const std::string&) { connection.Reset(); });
    socket_.ClearDNSCache();
    EXPECT_EQ(Lookup(server.Port()), result);
    EXPECT_EQ(socket_.DNSLastErr(), error);
  }
}

// With both families asked for, a silent one does not hold up the other.
TEST_F(ServerLookup, OneFamilyDoesNotWaitForTheOther) {
  DnsServer server([](const std::string& query) -> Replies {
    const bool v6 = query[query.find('\0', 12) + 2] == TYPE_AAAA;
    if (v6) return {};
    return {DnsReply(query).Answer(AddressRecord(1)).Bytes()};
  });
  const Takes time(seconds(0), std::chrono::seconds(1));
  socket_.AddressPreference(preferIPv6);
  EXPECT_EQ(Lookup(server.Port()), "192.0.2.1");
}

TEST_F(ServerLookup, AllAddressesAreToldInTheOrderOfConnecting) {
  const std::vector<std::string> v4 = {"127.0.0.1", "127.0.0.2"}, v6 = {"::1"};
  struct {
    AddressPreferenceEnum preference;
    const char* name;
    std::vector<std::string> addresses;
    std::int32_t error;
  } const cases[] = {{preferIPv4, "both.test", v4, 0},
                     {onlyIPv6, "both.test", v6, 0},
                     {preferIPv6, "both.test", {v6[0], v4[0], v4[1]}, 0},
                     {preferIPv4, "none.test", {}, 59}};
  root_.Put("etc/hosts", "127.0.0.1 both.test\n::1 both.test\n127.0.0.2 both.test\n");
  DnsServer server(Replying([](auto& r) { r.Code(3); }));
  socket_.DNSURL("127.0.0.1:" + std::to_string(server.Port()));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    socket_.ClearDNSCache();
    socket_.AddressPreference(c.preference);
    EXPECT_EQ(socket_.DNSLookupAll(c.name), c.addresses);
    EXPECT_EQ(socket_.DNSLastErr(), c.error);
  }
}

TEST_F(ServerLookup, ExpiredEntriesCountWhereNobodyAnswersAndOnlyThen) {
  std::atomic<int> mode{0};
  DnsServer server(
      Replying([&](auto& r) { mode == 0 ? r.Answer(AddressRecord(8)) : r.Code(1 + mode); }));
  struct {
    bool allowed;
    int mode, hours;
    const char* result;
  } const cases[] = {{false, 1, 1, ""},
                     {true, 1, 1, "192.0.2.8"},
                     {true, 1, 25, ""},
                     {true, 2, 1, ""},
                     {true, 0, 1, "192.0.2.8"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.mode) + ' ' + std::to_string(c.hours));
    socket_.ClearDNSCache();
    socket_.ServeStale(c.allowed);
    mode = 0;
    EXPECT_EQ(Lookup(server.Port()), "192.0.2.8");
    EXPECT_FALSE(socket_.LookupWasStale());
    AdvanceClockForTests(std::chrono::hours(c.hours));
    mode = c.mode;
    EXPECT_EQ(Lookup(server.Port()), c.result);
    EXPECT_EQ(socket_.LookupWasStale(), c.mode == 1 && *c.result != '\0');
  }
  socket_.ServeStale(false);
}

// The system's own list: its servers listen on port 53, which is not everybody's.
TEST_F(ServerLookup, TheSystemsRulesHoldForItsServers) {
  std::mutex mutex;
  std::vector<std::string> asked;
  const auto answer = [&](const std::string& query) -> Replies {
    std::string name;
    for (std::size_t at = 12; query[at] != '\0'; at += 1 + static_cast<std::size_t>(query[at]))
      name += query.substr(at + 1, static_cast<std::size_t>(query[at])) + '.';
    name = ToLower(name);
    const std::scoped_lock lock(mutex);
    asked.push_back(name);
    if (name.starts_with("intranet.b.")) return {DnsReply(query).Answer(AddressRecord(9)).Bytes()};
    return {DnsReply(query).Code(name.starts_with("empty.a") ? 0 : 3).Bytes()};
  };
  const auto server = ServeOnOwnAddress(answer, 53);
  const std::string found = "intranet.b.test.";
  if (!server) GTEST_SKIP() << "port 53 of 127.0.0.0/8 may not be used here";
  struct {
    const char *config, *name, *result;
    std::int32_t error;
    std::vector<std::string> asked;
  } const cases[] = {
      {"search a.test b.test", "intranet", "192.0.2.9", 0, {"intranet.a.test.", found}},
      {"search a.test b.test", "intranet.", "", 59, {"intranet."}},
      {"search b.test", "www.intranet", "", 59, {"www.intranet.", "www.intranet.b.test."}},
      {"search b.test\noptions ndots:2", "x.net", "", 59, {"x.net.b.test.", "x.net."}},
      {"domain b.test", "intranet", "192.0.2.9", 0, {"intranet.b.test."}},
      {"search a.test", "empty", "", 11004, {"empty.a.test.", "empty."}},
      {"", "intranet", "", 59, {"intranet."}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.config);
    root_.Put("etc/resolv.conf", "nameserver " + server->Ip() + "\n" + c.config + "\n");
    SocketCls socket;
    socket.ClearDNSCache();
    socket.AddressPreference(onlyIPv4);
    EXPECT_EQ(socket.DNSLookup(c.name), c.result);
    EXPECT_EQ(socket.DNSLastErr(), c.error);
    const std::scoped_lock lock(mutex);
    EXPECT_EQ(std::exchange(asked, {}), c.asked);
  }
}

}  // namespace
}  // namespace netro
