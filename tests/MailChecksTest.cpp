// The address checks of SendMailCls that ask servers: of addresses, gateways, administrators.
#include "SendMailKit.h"

namespace netro {
namespace {

struct MailChecks : SendMailTest {};

TEST_F(MailChecks, CheckeMailAddressAsksTheServer) {
  const struct {
    std::string command;
    Answer answer;
    bool holds;
    std::int32_t result;
    std::string text;
  } kCases[] = {
      {"none", "", true, 0, "Success"},
      {"RCPT TO:<a@xy.test>", "550 no such user\r\n", false, 550, "550 no such user\r\n"},
      {"MAIL FROM:<admin@me.test>", "451 later\r\n", false, 451, "451 later\r\n"},
      {"QUIT", "500 what\r\n", true, 500, "500 what\r\n"},
      {"QUIT", {"", After::Close}, true, 10054, "*"},
      {"RCPT TO:<a@xy.test>", {"", After::Close}, false, 10054, "*"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command + " " + c.answer.bytes);
    SmtpServer server(Except(c.command, c.answer));
    SendTo(server);
    EXPECT_EQ(mail_->CheckeMailAddress("A <a@xy.test>"), c.holds);
    EXPECT_EQ(mail_->Result(), c.result);
    EXPECT_TRUE(c.text == "*" || mail_->ResultMessage() == c.text) << mail_->ResultMessage();
    EXPECT_TRUE(server.Messages().empty());
  }
}

TEST_F(MailChecks, CheckeMailAddressNamesItsSender) {
  SmtpServer server;
  SendTo(server);
  const struct {
    std::string sender, host, helo, from;
  } kCases[] = {{"", "", "me.test", "admin@me.test"},
                {"", "probe.test", "probe.test", "admin@probe.test"},
                {"Jane <jane@xy.test>", "probe.test", "probe.test", "jane@xy.test"},
                {"root", "", "me.test", "root"}};
  std::vector<std::string> commands;
  for (const auto& [sender, host, helo, from] : kCases) {
    EXPECT_TRUE(mail_->CheckeMailAddress("a@xy.test", sender, host));
    commands.insert(commands.end(),
                    {"EHLO " + helo, "MAIL FROM:<" + from + ">", "RCPT TO:<a@xy.test>", "QUIT"});
  }
  EXPECT_EQ(server.Commands(), commands);
  const std::size_t before = server.Connections();
  EXPECT_FALSE(mail_->CheckeMailAddress("a@xy"));
  ExpectResult(2, "Localname part of address is not like '??*.??*'");
  EXPECT_FALSE(mail_->CheckeMailAddress("a@xy.test", "jane@xy.test\r\nRCPT TO:<b@xy.test"));
  EXPECT_EQ(mail_->Result(), SMTP_INITERROR);
  EXPECT_EQ(server.Connections(), before);
  EXPECT_EQ(mail_->SenderHostName(), "me.test");
}

TEST_F(MailChecks, GatewaysOfDomains) {
  SmtpServer server;
  SendTo(server);  // which has nothing to say here
  mail_->ProtocolLevel(pl_Off);
  DnsServer nothing(KnowNothing), names(KnowAll);
  mail_->DNSURL(UrlOf(nothing) + "," + UrlOf(names));
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "mx.test");
  EXPECT_EQ(mail_->QueryGatewayIP("xy.test"), "127.0.0.1");
  ExpectResult(0, "");
  EXPECT_EQ(TimesAsked(nothing, "xy.test"), 2u);
  EXPECT_EQ(mail_->QueryGatewayName("[192.0.2.1]"), "192.0.2.1");
  EXPECT_EQ(mail_->ReceiverHostName(), "127.0.0.1");
  const std::string noEntries =
      "DNS Error. System Message: '" + QueryDNSCLS().TranslateDNSResult(59) + "'";
  const auto knowNoAddress =
      Replying([](auto& reply) { reply.Answer(MxRecord(5, "mx.nowhere.test")); });
  DnsServer noAddress([&](const std::string& query) {
    return TypeOf(query) == TYPE_MX ? knowNoAddress(query) : KnowNothing(query);
  });
  mail_->DNSURL(UrlOf(noAddress));
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "mx.nowhere.test");
  EXPECT_EQ(mail_->QueryGatewayIP("xy.test"), "");
  ExpectResult(59, noEntries);
  mail_->DNSURL(UrlOf(nothing));
  for (const std::string& domain : {"xy.test"s, ""s, "a b"s, "xy..test"s, "a@b, c@d"s}) {
    EXPECT_EQ(mail_->QueryGatewayName(domain), "") << domain;
    EXPECT_EQ(mail_->QueryGatewayIP(domain), "") << domain;
    EXPECT_NE(mail_->Result(), 0) << domain;
  }
  EXPECT_EQ(mail_->QueryGatewayName("xy.test"), "");
  ExpectResult(59, noEntries);
  EXPECT_EQ(server.Connections(), 0u);
}

TEST_F(MailChecks, TheAdministratorStandsInTheSoaRecord) {
  const std::pair<std::string, std::string> kCases[] = {
      {dns::Name("hostmaster.xy.test"), "hostmaster@xy.test"},
      {dns::Text("john.doe") + dns::Name("xy.test"), "john.doe@xy.test"},
      {dns::Name("root"), "root@www.xy.test"},
      // Nothing that could stand in an address.
      {dns::Name(""), ""},
      {dns::Text("a\r\nb") + dns::Name("xy.test"), ""},
  };
  for (const auto& [mailbox, address] : kCases)
    for (const bool authority : {false, true}) {
      DnsServer nothing(KnowNothing);
      const std::string record = dns::Record(
          dns::kQuestion, TYPE_SOA, dns::Name("ns.test") + mailbox + std::string(20, '\1'));
      DnsServer server(Replying(
          [&](auto& reply) { authority ? reply.Authority(record) : reply.Answer(record); }));
      mail_->DNSURL(UrlOf(nothing) + "," + UrlOf(server));
      EXPECT_EQ(mail_->GetMailAdminForeMail("Jane <jane@www.xy.test>"), address) << mailbox;
      EXPECT_EQ(mail_->Result(), address.empty() ? 59 : 0) << mailbox;
      ASSERT_EQ(server.Queries().size(), 1u);
      EXPECT_EQ(TypeOf(server.Queries()[0]), TYPE_SOA);
      EXPECT_EQ(nothing.Queries().size(), 1u);
    }
  EXPECT_EQ(mail_->GetMailAdminForeMail("jane"), "");
  ExpectResult(4, "eMail Address must contain a Host after @");
}

TEST_F(MailChecks, LookupsCanBeStoppedAndOutliveTheObject) {
  DnsServer silent(KeepSilent);
  const std::function<std::string(SendMailCls&)> kCalls[] = {
      [](SendMailCls& mail) { return mail.GetMailAdminForeMail("a@xy.test"); },
      [](SendMailCls& mail) { return mail.QueryGatewayIP("xy.test"); },
      [](SendMailCls& mail) { return mail.CheckeMailAddress("a@xy.test") ? "true" : ""; }};
  for (const auto& call : kCalls)
    for (const bool remove : {false, true}) {
      mail_ = std::make_unique<SendMailCls>();
      mail_->DNSURL(UrlOf(silent));
      const std::size_t before = silent.QueryCount();
      PostWhen([&, before] { return silent.QueryCount() > before; },
               [&, remove] {
                 if (remove) return mail_.reset();
                 mail_->StopWaiting();
               });
      EXPECT_EQ(call(*mail_), "");
      EXPECT_TRUE(remove || mail_->Result() == 9999);
    }
}

}  // namespace
}  // namespace netro
