// Sessions that find the server themselves: whom they ask, which exchanger they choose.
#include "DnsTestKit.h"
#include "SmtpTestKit.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

using namespace testkit::dns;

constexpr char kNothing[] = "No DNS Entries found.";

std::string Address(const std::string& name, int last, int type = TYPE_A) {
  return Record(Name(name), type, Octets({127, 0, 0, last}));
}

struct SmtpExchanger : SmtpTest {
  SmtpExchanger() { DefaultHostLookup().Clear(); }
  ~SmtpExchanger() override { DefaultHostLookup().Clear(); }

  // A simulation for an address of you.test, as the DNS server says.
  bool Find(const DnsServer& dns, const SmtpServer& server) {
    smtp_->ReceiverHostName("");
    smtp_->DNSURL(UrlOf(dns));
    smtp_->Simulation(true);
    return Deliver(server);
  }

  // A server that names one exchanger for MX and 127.0.0.1 for addresses.
  static Replies OneExchanger(const std::string& query) {
    const std::string here = Record(kQuestion, TYPE_A, Octets({127, 0, 0, 1}));
    const bool asksForMx = TypeOf(query) == TYPE_MX;
    return {DnsReply(query).Answer(asksForMx ? MxRecord(10, "mx.test") : here).Bytes()};
  }
  // The same, but for what `build` makes of an empty reply about MX.
  static DnsServer::Answer Saying(std::function<void(DnsReply&)> build) {
    return [answer = Replying(std::move(build))](const std::string& query) {
      return TypeOf(query) == TYPE_MX ? answer(query) : OneExchanger(query);
    };
  }

  static std::string Line(const DnsServer& dns, const std::string& text) {
    return "[DNS " + UrlOf(dns) + "] " + text;
  }

  SmtpServer mail_;
};

TEST_F(SmtpExchanger, IsFoundAndUsed) {
  DnsServer dns(OneExchanger);
  EXPECT_TRUE(Find(dns, mail_)) << smtp_->ResultMessage();
  EXPECT_EQ(smtp_->ReceiverHostName(), "mx.test");
  EXPECT_EQ(sink_.lines[0], Line(dns, "mx.test => 127.0.0.1"));
  EXPECT_EQ(sink_.lines[1], "[mx.test] 220 mx.test ready");
  EXPECT_EQ(smtp_->GetGateWayNameFromProtocol(smtp_->Protocol()), "mx.test");
  EXPECT_EQ(smtp_->GetGatewayIPFromProtocol(smtp_->Protocol()), "127.0.0.1");
  EXPECT_EQ(dns.Queries().size(), 2u) << "the address is asked for once";
  EXPECT_NE(dns.Queries()[0].find(Name("you.test")), std::string::npos);
  EXPECT_TRUE(Deliver(mail_)) << "the exchanger stays";
  EXPECT_EQ(dns.Queries().size(), 2u);
}

// RFC 5321, section 5.1. Exchangers that are of no use do not make the domain one.
TEST_F(SmtpExchanger, ADomainWithAnAddressAloneIsItsOwn) {
  for (const bool hasExchanger : {false, true}) {
    DefaultHostLookup().Clear();
    Renew();
    DnsServer dns(Saying([&](auto& reply) {
      hasExchanger ? reply.Answer(MxRecord(5, "a b.test")) : reply.Authority(SoaRecord());
    }));
    EXPECT_NE(Find(dns, mail_), hasExchanger) << smtp_->ResultMessage();
    EXPECT_EQ(smtp_->ReceiverHostName(), hasExchanger ? "" : "you.test");
    const std::string found = hasExchanger ? SocketErrorText(22) : "you.test => 127.0.0.1";
    EXPECT_EQ(sink_.lines[0], Line(dns, found));
  }
}

TEST_F(SmtpExchanger, LeastPreferenceThenName) {
  const std::pair<std::vector<std::pair<std::size_t, std::string>>, std::string> kCases[] = {
      {{{20, "a.test"}, {10, "b.test"}}, "b.test"},
      {{{10, "b.test"}, {10, "a.test"}, {10, "c.test"}}, "a.test"},
      {{{9, "b.test"}, {10, "a.test"}}, "b.test"},
      {{{100, "b.test"}, {20, "a.test"}}, "a.test"},
      {{{0, "b.test"}, {0, "B.test"}}, "B.test"},
      {{{2'000, "a.test"}, {10'001, "b.test"}}, "b.test"},  // the last four digits
      {{{40'000, "b.test"}, {1, "a.test"}}, "b.test"},
      {{{65'535, "b.test"}, {5'536, "a.test"}}, "b.test"},
      {{{1, ""}, {2, "a.test"}}, "a.test"},  // "no mail" (RFC 7505)
      {{{1, "a b.test"}, {2, "b\r\n.test"}, {3, "\xFF.test"}, {4, "c.test"}}, "c.test"},
      {{{1, "<a.test>"}, {2, "a%2.test"}, {3, "c.test"}}, "c.test"},
  };
  for (const auto& [records, chosen] : kCases) {
    DnsServer dns(Replying([&](auto& reply) {
      for (const auto& [number, name] : records) reply.Answer(MxRecord(number, name));
      for (const auto& [number, name] : records) reply.Additional(Address(name, 1));
    }));
    EXPECT_TRUE(Find(dns, mail_) || smtp_->StepID() == SMTP_STEP_INITSOCKET);
    EXPECT_EQ(smtp_->ReceiverHostName(), chosen);
    EXPECT_EQ(sink_.lines[0], Line(dns, chosen + " => 127.0.0.1"));
    Renew();
  }
}

// And the connection goes there: nothing listens at 127.0.0.7.
TEST_F(SmtpExchanger, AdditionalAddressesMustBeItsOwn) {
  const std::pair<std::string, std::string> kCases[] = {
      {Address("mx.test", 7), "127.0.0.7"},
      {Address("MX.Test", 7), "127.0.0.7"},
      {Address("other.test", 7), "127.0.0.1"},
      {Record(Name("mx.test"), TYPE_CNAME, Name("x.test")), "127.0.0.1"},
      {Record(Name("mx.test"), TYPE_A, Octets({0, 0, 0, 0})), "127.0.0.1"},
      {Record(Name("mx.test"), TYPE_A, Octets({255, 255, 255, 255})), "127.0.0.1"},
  };
  for (const auto& [additional, address] : kCases) {
    DefaultHostLookup().Clear();
    DnsServer dns(Saying([record = additional](auto& reply) {
      reply.Answer(MxRecord(1, "mx.test")).Additional(record);
    }));
    EXPECT_EQ(Find(dns, mail_), address == "127.0.0.1") << smtp_->ResultMessage();
    EXPECT_EQ(smtp_->GetGatewayIPFromProtocol(smtp_->Protocol()), address);
  }
}

TEST_F(SmtpExchanger, WithoutAnAddressTheConnectionFails) {
  DnsServer dns([](const std::string& query) -> Replies {
    if (TypeOf(query) == TYPE_MX) return OneExchanger(query);
    return {DnsReply(query).Code(3).Bytes()};
  });
  EXPECT_FALSE(Find(dns, mail_));
  ExpectResult(SMTP_STEP_INITSOCKET, SMTP_INITERROR, "Can not connect to host 'me.test'.");
  EXPECT_EQ(sink_.lines[0], Line(dns, "mx.test => "));
}

// A proxy that looks names up gets the name.
TEST_F(SmtpExchanger, ThroughAProxy) {
  DnsServer dns(OneExchanger);
  SocksServer proxy;
  UseProxy(proxy.Port(), SMTPProxySocks5NoAuth);
  smtp_->ProxyUseRemoteDNS(true);
  EXPECT_TRUE(Find(dns, mail_)) << smtp_->ResultMessage();
  EXPECT_NE(proxy.Requests().back().find("mx.test"), std::string::npos);
}

TEST_F(SmtpExchanger, AFailedLookupTellsOfEachServer) {
  DnsServer noName(Replying([](auto& reply) { reply.Code(3); }));
  DnsServer noMail(Replying([](auto& reply) { reply.Answer(MxRecord(0, "")); }));
  DnsServer noRecord(Replying([](auto& reply) { reply.Authority(SoaRecord()); }));
  smtp_->ReceiverHostName("");
  smtp_->DNSURL(UrlOf(noName) + ", " + UrlOf(noMail) + "," + UrlOf(noRecord));
  for (const ProtocolLevelEnum level : {pl_standard, pl_OnlyErrors, pl_Off}) {
    smtp_->ProtocolLevel(level);
    EXPECT_FALSE(Deliver(mail_));
    const std::string lines =
        Line(noName, kNothing) + "\r\n" +
        Line(noMail, "No Mail. The domain tells in DNS that it takes no mail (RFC 7505).") +
        "\r\n" + Line(noRecord, SocketErrorText(22));
    ExpectFailure(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, lines, level == pl_Off ? "" : lines);
    EXPECT_EQ(smtp_->ReceiverHostName(), "");
  }
  EXPECT_EQ(mail_.Connections(), 0u);
}

TEST_F(SmtpExchanger, TheNextServerIsAskedWhenOneDoesNotKnow) {
  DnsServer silent(KeepSilent);
  DnsServer knows(OneExchanger);
  smtp_->ReceiverHostName("");
  smtp_->Simulation(true);
  smtp_->DNSURL(UrlOf(silent) + "," + UrlOf(knows));
  const RunningClock clock([&] { return silent.QueryCount() > 0 && sink_.lines.empty(); });
  EXPECT_TRUE(Deliver(mail_)) << smtp_->ResultMessage();
  EXPECT_EQ(sink_.lines[0], Line(silent, "Command Timed Out"));
  EXPECT_EQ(sink_.lines[1], Line(knows, "mx.test => 127.0.0.1"));
}

TEST_F(SmtpExchanger, ATruncatedAnswerIsAskedForOverTcp) {
  for (const bool tcpWorks : {true, false}) {
    DnsServer dns(
        Saying([](auto& reply) { reply.Flags(0x82, 0x80).Answer(MxRecord(9, "part.test")); }),
        [&](Connection& connection, const std::string& query) {
          if (tcpWorks) connection.Send(Framed(OneExchanger(query)[0].bytes));
        });
    EXPECT_TRUE(Find(dns, mail_)) << smtp_->ResultMessage();
    EXPECT_EQ(smtp_->ReceiverHostName(), tcpWorks ? "mx.test" : "part.test");
  }
}

TEST_F(SmtpExchanger, WhichServersAreAsked) {
  const SystemRoot root;  // whose system has no servers, which a new thread finds out
  std::thread([&] {
    const std::tuple<const char*, std::string, std::string> kCases[] = {
        {nullptr, "", "[DNS none] Can not find DNS Server."},
        {",", "", "[DNS none] Can not find DNS Server."},
        {"a\r\n", "", "[DNS none] " + SocketErrorText(10022)},
        {nullptr, "a..b", "[DNS a..b:53] " + SocketErrorText(11001)},
        {"", "a..b", "[DNS a..b:53] " + SocketErrorText(11001)},
        {"c..d:1", "a..b", "[DNS c..d:1] " + SocketErrorText(11001)},
    };
    for (const auto& [url, server, line] : kCases) {
      Renew();
      smtp_->ReceiverHostName("");
      if (url != nullptr) smtp_->DNSURL(url);
      smtp_->DNSServer(server);
      EXPECT_FALSE(Deliver());
      ExpectResult(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, line);
    }
    smtp_.reset();
  }).join();
}

TEST_F(SmtpExchanger, AnAddressLiteralIsItsOwnExchanger) {
  smtp_->Port(mail_.Port());
  smtp_->ReceiverHostName("");
  EXPECT_TRUE(smtp_->SMTP("from@me.test", "to@[127.0.0.1]", "text")) << smtp_->ResultMessage();
  EXPECT_EQ(smtp_->ReceiverHostName(), "127.0.0.1");
  EXPECT_EQ(smtp_->GetGateWayNameFromProtocol(smtp_->Protocol()), "127.0.0.1");
  EXPECT_EQ(smtp_->GetGatewayIPFromProtocol(smtp_->Protocol()), "127.0.0.1");
  for (const std::string& domain : {"[]"s, "[127.0.0.256]"s, "[::1]"s, "[a.test]"s}) {
    smtp_->ReceiverHostName("");
    EXPECT_FALSE(smtp_->SMTP("from@me.test", "to@" + domain, "text"));
    ExpectResult(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, "[DNS none] "s + kNothing);
  }
}

TEST_F(SmtpExchanger, AnAddressWithoutDomainHasNone) {
  DnsServer dns(OneExchanger);
  smtp_->ReceiverHostName("");
  smtp_->DNSURL(UrlOf(dns));
  EXPECT_FALSE(smtp_->SMTP("from@me.test", "to", "text"));
  ExpectResult(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, Line(dns, "Domain name must not be empty."));
  EXPECT_TRUE(dns.Queries().empty());
}

}  // namespace
}  // namespace netro
