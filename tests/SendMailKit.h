// What the tests of SendMailCls share: a client, and DNS servers that know every domain or none.
#pragma once

#include <netro/SendMailCls.h>

#include "DnsTestKit.h"
#include "SmtpTestKit.h"
#include "socket/HostLookup.h"

namespace netro {

struct SendMailTest : testing::Test {
  SendMailTest() {
    DefaultHostLookup().Clear();
    mail_->SenderHostName("me.test");
    mail_->ProtocolLevel(pl_standard);
    mail_->Events(&events_);
  }

  void SendTo(const testkit::SmtpServer& server) {
    mail_->ReceiverHostName("127.0.0.1");
    mail_->Port(server.Port());
  }
  void Compose(const std::string& to, const std::string& cc = "", const std::string& bcc = "") {
    EXPECT_TRUE(mail_->NewTextMsg("Subject", "Jane <jane@xy.test>", to, "Text", cc, bcc));
  }
  bool Send(const std::string& to, const std::string& cc = "") {
    Compose(to, cc);
    return mail_->SendMail();
  }
  void ExpectResult(std::int32_t number, const std::string& text) {
    EXPECT_EQ(mail_->Result(), number);
    EXPECT_EQ(mail_->ResultMessage(), text);
  }
  void ExpectOutcome(std::size_t index, const std::string& address, std::int32_t step,
                     std::int32_t result, std::int32_t resultClass) {
    ASSERT_LT(index, mail_->Outcomes().size());
    const RecipientOutcome& outcome = mail_->Outcomes()[index];
    EXPECT_EQ(outcome.Address, address);
    EXPECT_EQ(outcome.StepID, step) << address;
    EXPECT_EQ(outcome.Result, result) << address;
    EXPECT_EQ(outcome.ResultClass, resultClass) << address;
    EXPECT_EQ(outcome.Accepted, resultClass == 0) << address;
  }

  SmtpSink events_;
  std::unique_ptr<SendMailCls> mail_ = std::make_unique<SendMailCls>();
};

/// Every domain has the exchanger mx.test, every name is this computer's.
inline Replies KnowAll(const std::string& query) {
  using namespace testkit::dns;
  const std::string here = Octets({127, 0, 0, 1});
  testkit::DnsReply reply(query);
  if (TypeOf(query) != TYPE_MX) return {reply.Answer(Record(kQuestion, TYPE_A, here)).Bytes()};
  reply.Answer(MxRecord(20, "backup.test")).Answer(MxRecord(5, "mx.test"));
  return {reply.Additional(Record(Name("mx.test"), TYPE_A, here)).Bytes()};
}

inline Replies KnowNothing(const std::string& query) {
  return {testkit::DnsReply(query).Code(3).Bytes()};
}

/// How often the server was asked for the exchangers of a domain.
inline std::size_t TimesAsked(testkit::DnsServer& server, const std::string& domain) {
  std::size_t times = 0;
  for (const std::string& query : server.Queries())
    times += TypeOf(query) == TYPE_MX && query.find(testkit::dns::Name(domain)) != query.npos ? 1 : 0;
  return times;
}

}  // namespace netro
