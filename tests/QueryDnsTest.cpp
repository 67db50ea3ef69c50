// QueryDNSCLS over UDP: what goes on the wire, which datagrams count, and how often it asks.
#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace testkit::dns;
using From = DnsServer::From;

const std::string kAddress = Octets({192, 0, 2, 1});

DnsReply Good(const std::string& query) {
  return DnsReply(query).Answer(Record(kQuestion, TYPE_A, kAddress));
}

Replies AnswerWell(const std::string& query) { return {Good(query).Bytes()}; }

std::string Dotted(std::size_t length) {  // labels of 63 letters
  std::string name;
  while (name.size() < length) name += name.size() % 64 == 63 ? '.' : 'a';
  return name;
}

TEST(QueryDns, QueryOnTheWire) {
  const struct {
    QueryEnum type;
    std::int16_t dnsClass;
    std::string domain, wire;
  } kCases[] = {
      {TYPE_A, 1, "www.test", Name("www.test")},
      {TYPE_AAAA, 1, "www.test.", Name("www.test")},
      {TYPE_MX, 3, "Test", Name("Test")},
      {TYPE_ALL, 255, "_sip._udp.a b.test", Name("_sip._udp.a b.test")},
      {static_cast<QueryEnum>(65'535), -1, "t", Name("t")},
      {TYPE_NS, 1, ".", Name("")},
      {TYPE_PTR, 1, "10.1.2.3", Name("3.2.1.10.in-addr.arpa")},
      {TYPE_PTR, 1, "1.0.0.127.in-addr.arpa", Name("1.0.0.127.in-addr.arpa")},
      {TYPE_PTR, 1, "10.1.2.3.4", Name("10.1.2.3.4")},
      {TYPE_A, 1, "10.1.2.3", Name("10.1.2.3")},
      {TYPE_A, 1, "\xFF.test", Name("\xFF.test")},
      {TYPE_A, 1, R"(a\.b.test)", Text("a\\") + Name("b.test")},  // not escaped by default
      {TYPE_A, 1, Dotted(63), Name(Dotted(63))},
      {TYPE_A, 1, Dotted(253), Name(Dotted(253))},
      {TYPE_A, 1, Dotted(253) + ".", Name(Dotted(253))},
  };
  for (const auto& c : kCases)
    for (const bool recursion : {true, false}) {
      SCOPED_TRACE(c.domain);
      DnsServer server(AnswerWell);
      QueryDNSCLS dns;
      PointAt(dns, server.Port(), c.type, c.domain);
      dns.QueryClass(c.dnsClass);
      dns.UseRecursion(recursion);
      EXPECT_EQ(dns.QueryDNS(), 0);
      const std::string wire = "\0\x19"s + (recursion ? '\x01' : '\0') + "\0\0\x01\0\0\0\0\0\0"s +
                               c.wire + U16(static_cast<std::uint16_t>(c.type)) +
                               U16(static_cast<std::uint16_t>(c.dnsClass));
      EXPECT_EQ(server.Queries(), std::vector{wire});
      EXPECT_EQ(dns.OutBuffer(), wire);
      EXPECT_EQ(dns.InBuffer(), Good(wire).Bytes());
      EXPECT_EQ(server.Connections(), 0u);
    }
}

TEST(QueryDns, NamesThatCannotBeAskedForAreNotSent) {
  DnsServer server(AnswerWell);
  for (const bool overUDP : {true, false}) {
    QueryDNSCLS dns;
    dns.UseUDP(overUDP);
    EXPECT_EQ(dns.QueryDNS(), 51);
    EXPECT_EQ(dns.QueryZone(), 51);
    dns.Domain("www.test");
    EXPECT_EQ(dns.QueryDNS(), 52) << "without a server";
    EXPECT_EQ(dns.QueryZone(), 52);
    for (const std::string& domain : {std::string(64, 'a'), "www." + std::string(64, 'a') + ".test",
                                      "a..b"s, ".test"s, "test.."s, ".."s, Dotted(254),
                                      Dotted(254) + ".", Dotted(300), std::string(70'000, 'a')}) {
      PointAt(dns, server.Port(), TYPE_A, domain);
      EXPECT_EQ(dns.QueryDNS(), 59) << domain;
      EXPECT_EQ(dns.QueryZone(), 59);
    }
  }
  EXPECT_TRUE(server.Queries().empty());
}

TEST(QueryDns, ServerThatCannotBeReached) {
  const SystemRoot root;  // whose system has no servers, which a new thread finds out
  std::thread([] {
    for (const bool overUDP : {true, false}) {
      QueryDNSCLS dns;
      PointAt(dns, 65'536);
      dns.UseUDP(overUDP);
      EXPECT_EQ(dns.QueryDNS(), 10022);
      dns.DNSServer(std::string(64, 'x'));  // too long a label to be looked up
      dns.DNSPort(53);
      EXPECT_EQ(dns.QueryDNS(), 11001);
      EXPECT_EQ(dns.LastErrMsg(), QueryDNSCLS().TranslateDNSResult(11001));
    }
  }).join();
}

TEST(QueryDns, ResultOfAReply) {
  const std::string soa = Record(Name("test"), TYPE_SOA, Soa());
  const std::string host = Record(kQuestion, TYPE_A, kAddress);
  const std::tuple<const char*, std::function<void(DnsReply&)>, const char*> kCases[] = {
      {"each section",
       [&](auto& r) { r.Answer(host).Answer(host).Authority(soa).Additional(host); },
       "0 Success 2/1/1"},
      {"authority only", [&](auto& r) { r.Authority(soa); }, "0 Success 0/1/0"},
      {"additional only", [&](auto& r) { r.Additional(host); }, "0 Success 0/0/1"},
      {"no record", [](auto&) {}, "59 No DNS Entries found. 0/0/0"},
      {"question in other letters",
       [&](auto& r) { r.Question(Name("WWW.tEST") + U16(1) + U16(1)).Answer(host); },
       "0 Success 1/0/0"},
      {"code 1", [&](auto& r) { r.Answer(host).Code(1); }, "59 No DNS Entries found. 1/0/0"},
      {"code 15", [&](auto& r) { r.Answer(host).Code(15); }, "59 No DNS Entries found. 1/0/0"},
  };
  for (const auto& [name, build, told] : kCases) {
    SCOPED_TRACE(name);
    DnsServer server(Replying(build));
    QueryDNSCLS dns;
    PointAt(dns, server.Port());
    dns.RetryCount(3);
    const std::int32_t result = dns.QueryDNS();
    EXPECT_EQ(result, dns.LastErr());
    EXPECT_EQ(Told(dns), told);
    EXPECT_EQ(dns.Count(), dns.CountAN());
    EXPECT_EQ(dns.CountAll(), dns.CountAN() + dns.CountNS() + dns.CountAR());
    EXPECT_EQ(server.Queries().size(), 1u) << "only silence is asked again";
  }
}

TEST(QueryDns, FlagsOfBothWays) {
  const struct {
    int first, second;
    bool authoritative, recursion, truncatedUDP, truncatedTCP;
  } kCases[] = {
      {0x80, 0x00, false, false, false, false}, {0x84, 0x00, true, false, false, false},
      {0x80, 0x80, false, true, false, false},  {0x82, 0x00, false, false, true, false},
      {0x80, 0x40, false, false, false, true},  {0x82, 0x40, false, false, true, true},
      {0xFF, 0xF0, true, true, true, true},     {0x85, 0xB0, true, true, false, false},
  };
  for (const auto& c : kCases)
    for (const bool overUDP : {true, false}) {
      SCOPED_TRACE(c.first * 256 + c.second);
      DnsServer server(
          Replying([&](auto& r) { r.Answer(HostRecord(1)).Flags(c.first, c.second); }));
      QueryDNSCLS dns;
      PointAt(dns, server.Port());
      dns.UseUDP(overUDP);
      bool authoritative = !c.authoritative, recursion = !c.recursion;
      EXPECT_EQ(dns.QueryDNS(&authoritative, &recursion), 0);
      EXPECT_EQ((std::vector{authoritative, recursion, dns.IsAuthoritativeAnswer(),
                             dns.IsRecursionAvailable(), dns.IsTruncated()}),
                (std::vector{c.authoritative, c.recursion, c.authoritative, c.recursion,
                             overUDP ? c.truncatedUDP : c.truncatedTCP}));
    }
}

// Datagrams that are no reply to the query, though they would end it if they were. Each comes
// twice before the reply; and alone.
struct Foreign {
  const char* name;
  std::string (*make)(const std::string& query);
  From from = From::kServer;
};

std::string Refusal(const std::string& query) { return DnsReply(query).Code(3).Bytes(); }
std::string RefusalOf(const std::string& query, const std::string& question, int count = 1) {
  return DnsReply(query).Question(question, count).Code(3).Bytes();
}

const Foreign kForeign[] = {
    {"another port", Refusal, From::kOtherPort},
    {"another address", Refusal, From::kOtherAddress},
    {"another ID", [](auto& query) { return DnsReply(query).Code(3).Id(26).Bytes(); }},
    {"turned ID", [](auto& query) { return DnsReply(query).Code(3).Id(0x1900).Bytes(); }},
    {"a query", [](auto& query) { return DnsReply(query).Flags(1, 3).Bytes(); }},
    {"its own query", [](auto& query) { return query; }},
    {"nothing", [](auto&) { return ""s; }},
    {"half a header", [](auto& query) { return Refusal(query).substr(0, 6); }},
    {"half a question", [](auto& query) { return Refusal(query).substr(0, 20); }},
    {"no question", [](auto& query) { return RefusalOf(query, query.substr(12), 0); }},
    {"two questions",
     [](auto& query) { return RefusalOf(query, query.substr(12) + query.substr(12), 2); }},
    {"another name", [](auto& query) { return RefusalOf(query, Name("www.tess") + U32(65537)); }},
    {"less of the name", [](auto& query) { return RefusalOf(query, Name("www") + U32(65537)); }},
    {"more of the name",
     [](auto& query) { return RefusalOf(query, Name("www.test.x") + U32(65537)); }},
    {"another type", [](auto& query) { return RefusalOf(query, Name("www.test") + U32(131073)); }},
    {"another class", [](auto& query) { return RefusalOf(query, Name("www.test") + U32(65539)); }},
};

TEST(QueryDns, ForeignDatagramsAreIgnored) {
  for (const Foreign& c : kForeign)
    for (const bool answered : {true, false}) {
      SCOPED_TRACE(c.name);
      DnsServer server([&](const std::string& query) {
        Replies replies(2, {c.make(query), c.from});
        if (answered) replies.emplace_back(Good(query).Bytes());
        return replies;
      });
      QueryDNSCLS dns;
      PointAt(dns, server.Port());
      const RunningClock clock(
          [&] { return !answered && server.QueryCount() > 0 && !server.Queries().empty(); });
      const Takes time(seconds(0), milliseconds(2500));
      EXPECT_EQ(dns.QueryDNS(), answered ? 0 : 10002);
      EXPECT_EQ(dns.CountAll(), answered ? 1 : 0);
      EXPECT_EQ(server.Queries().size(), 1u);
    }
}

TEST(QueryDns, SilenceIsAskedAgainAfterAPause) {
  for (const int tries : {1, 3}) {
    DnsServer server(KeepSilent);
    QueryDNSCLS dns;
    PointAt(dns, server.Port());
    dns.RetryCount(tries);
    dns.RetryPauseMilliSeconds(60'000);
    const RunningClock clock([] { return true; });
    const Takes time(milliseconds((tries - 1) * 60'000 + tries * 990),
                     milliseconds((tries > 1 ? tries * 60'000 : 0) + tries * 2500));
    EXPECT_EQ(dns.QueryDNS(), 10002);
    EXPECT_EQ(server.Queries(), std::vector(static_cast<std::size_t>(tries), dns.OutBuffer()));
  }
}

TEST(QueryDns, SecondTryMayBeAnswered) {
  std::atomic<int> number{0};
  DnsServer server([&](const std::string& query) -> Replies {
    if (number++ == 0) return {};
    return {Good(query).Bytes()};
  });
  QueryDNSCLS dns;
  PointAt(dns, server.Port());
  dns.RetryCount(5);
  dns.RetryPauseMilliSeconds(0);
  // Enough for one try and not for two.
  const RunningClock clock([&] { return server.QueryCount() == 1; }, milliseconds(1400));
  EXPECT_EQ(dns.QueryDNS(), 0);
  EXPECT_EQ(server.Queries().size(), 2u);
}

TEST(QueryDns, ListsAreOfTheLastQuery) {
  DnsServer server([](const std::string& query) -> Replies {
    if (query.find("silent") != std::string::npos) return {};
    if (query.find("none") != std::string::npos) return {DnsReply(query).Bytes()};
    return AnswerWell(query);
  });
  const struct {
    const char* domain;
    std::int32_t tries;
    std::int16_t result;
    bool overUDP = true;
  } kCases[] = {{"silent.test", 1, 10002}, {"none.test", 1, 59},    {"a..b", 1, 59},
                {"www.test", 0, 10130},    {"www.test", -1, 10130}, {"www.test", 0, 10130, false}};
  QueryDNSCLS dns;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.domain);
    PointAt(dns, server.Port());
    dns.UseUDP(c.overUDP);
    ASSERT_EQ(dns.QueryDNS(), 0);
    ASSERT_EQ(dns.CountAN(), 1);
    const std::size_t asked = server.Queries().size();
    dns.Domain(c.domain);
    dns.RetryCount(c.tries);
    const RunningClock clock([&] { return c.result == 10002; });
    EXPECT_EQ(dns.QueryDNS(), c.result);
    EXPECT_EQ(dns.CountAN(), c.result == 0 ? 1 : 0);
    EXPECT_EQ(server.Queries().size() > asked, c.tries == 1 && c.domain != "a..b"s);
  }
}

TEST(QueryDns, RecordsByIndexAndKey) {
  DnsServer server(Replying([](auto& reply) {
    const auto host = [](const char* name, int number) {
      return Record(Name(name), TYPE_A, Octets({number, 0, 0, number}));
    };
    reply.Answer(host("b.test", 1)).Answer(host("A.Test", 2)).Answer(host("a.test", 3));
    reply.Authority(host("ns.test", 4)).Additional(host("", 5));
  }));
  QueryDNSCLS dns;
  EXPECT_EQ(dns.EntryAN(1), nullptr);
  PointAt(dns, server.Port());
  ASSERT_EQ(dns.QueryDNS(), 0);
  for (const std::int32_t index : {0, 4, -1, INT32_MAX, INT32_MIN}) {
    for (const auto* entry :
         {dns.EntryAN(index), dns.Entry(index), dns.EntryNS(index), dns.EntryAR(index)})
      EXPECT_EQ(entry, nullptr) << index;
  }
  EXPECT_EQ(dns.EntryNS(2), nullptr);
  ASSERT_EQ(Told(dns), "0 Success 3/1/1");
  EXPECT_EQ(dns.EntryAN(1)->Data() + " " + dns.EntryAN(3)->Data(), "1.0.0.1 3.0.0.3");
  EXPECT_EQ(dns.EntryNS(1)->Data() + " " + dns.EntryAR(1)->Data(), "4.0.0.4 5.0.0.5");
  EXPECT_EQ(dns.Entry(2), dns.EntryAN(2));
  EXPECT_EQ(dns.EntryAN("a.TEST"), dns.EntryAN(2));
  EXPECT_EQ(dns.Entry("B.test"), dns.EntryAN(1));
  EXPECT_EQ(dns.EntryAN("ns.test"), nullptr);
  EXPECT_EQ(dns.EntryNS("NS.TEST"), dns.EntryNS(1));
  EXPECT_EQ(dns.EntryAR(""), dns.EntryAR(1));
  EXPECT_EQ(dns.EntryAN("a"), nullptr);
}

// Where the texts are not those of the sockets.
TEST(QueryDns, TextsOfTheResults) {
  QueryDNSCLS dns;
  dns.ProxyURL("proxy.test");
  dns.ProxyPort(1080);
  const std::pair<std::int32_t, const char*> kCases[] = {
      {0, "Success"},
      {4, "Not Implemented. The name server does not support the requested kind of Query."},
      {10, "NotZone. Name not contained in zone."},
      {16, "BADVERS. Bad OPT Version./BADSIG. TSIG Signature Failure."},
      {21, "BADALG. Algorithm not supported."},
      {22, "No DNS Entries found."},
      {51, "Domain name must not be empty."},
      {56, "Can not retrieve data from DNS server."},
      {59, "No DNS Entries found."},
      {60, "Process canceled by user request."},
      {9000, "[Proxy SOCKS proxy.test:1080] OK"},
      {9003,
       "[Proxy SOCKS proxy.test:1080] The selected authentication method was not accepted by the "
       "proxy."},
      {9999, "Command Canceled"},
      {77'777, "Unknown Error# 77777."},
  };
  for (const auto& [code, text] : kCases) {
    EXPECT_EQ(dns.TranslateDNSResult(code), text);
    EXPECT_EQ(Told(dns), std::to_string(code) + " " + text + " 0/0/0");
  }
}

TEST(QueryDns, DottedAddresses) {
  const QueryDNSCLS dns;
  for (const char* yes : {"1.2.3.4", "0.0.0.0", "255.255.255.254"})
    EXPECT_TRUE(dns.IsIPNumber(yes)) << yes;
  for (const char* no : {"", "1.2.3.4.", "1.2.3.4.5", "256.1.1.1", "1.2.3.a", "www.test", "1..2.3",
                         "-1.2.3.4", "1.2.3.4 x", "255.255.255.255"})
    EXPECT_FALSE(dns.IsIPNumber(no)) << no;
}

}  // namespace
}  // namespace netro
