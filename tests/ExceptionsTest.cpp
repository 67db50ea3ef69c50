// What the host's functions throw: it arrives at the caller of the blocking call or of the pump,
// which is over then, and every object can be used again at once. torture/ throws at every event
// and at many turns of every blocking call; EventExceptionsTest has the events of other calls.
#include <netro/HTTPCls.h>
#include <netro/SendMailCls.h>

#include "DnsTestKit.h"
#include "ExceptionKit.h"
#include "SendMailKit.h"
#include "tests/peers/HttpServer.h"
#include "tests/peers/SmtpServer.h"

namespace netro {
namespace {

constexpr std::int32_t kPending = 3018;

struct Exceptions : testing::Test {
  Trap trap_;
  Sink sink_{trap_};
  HttpServer http_;
  peers::DnsServer dns_{KnowAll};
};

TEST_F(Exceptions, CaughtInANestedCallLeaveTheOuterOneAlone) {
  std::atomic<bool> asked{false}, over{false};
  http_.OnText("/", "text");
  http_.On("/slow", [&](const peers::HttpRequest&) {
    for (asked = true; !over;) std::this_thread::yield();
    return HttpServer::Answer("200 OK\r\nContent-Type: text/plain\r\n", "slow");
  });
  peers::DnsServer silent(KeepSilent);
  QueryDNSCLS names, last;
  PointAt(names, dns_.Port());
  PointAt(last, silent.Port());
  HTTPCls outer, inner;
  outer.Events(&sink_);
  outer.URL(http_.Url("/slow"));
  inner.URL(http_.Url("/"));
  bool timeout = false;
  const std::function<bool()> calls[] = {
      [&] { return inner.HTTPQuery(timeout).ends_with("text"); },
      [&] { return names.QueryDNS() == 0; },
  };
  const auto nested = [&] {
    for (const auto& call : calls) {
      for (const int passes : {0, 2, 9}) {
        trap_.Set(Trap::kTask, passes);
        Throws([&] { EXPECT_TRUE(call()); });
        trap_.Clear();
      }
      EXPECT_TRUE(call());
    }
    over = true;
    trap_.Set(Trap::kEvent, 0);  // the outer one's own event, within the call of another
    EXPECT_TRUE(Throws([&] { last.QueryDNS(); }));
  };
  PostWhen([&] { return asked.load(); }, nested);
  EXPECT_TRUE(outer.HTTPQuery(timeout).ends_with("slow")) << outer.LastErr();
  EXPECT_TRUE(over);
}

// The line that throws, and which of the recipients are known to have got the message then.
TEST_F(Exceptions, TellWhichRecipientsHaveTheMessage) {
  const std::pair<std::string, bool> cases[] = {
      {"354 ", false}, {"RCPT TO:<b@", false}, {"250 queued", true}, {"QUIT", true}};
  peers::SmtpServer server([](const std::string& command) -> peers::SmtpServer::Answer {
    return command == "." ? "250 queued\r\n" : peers::SmtpServer::Politely(command);
  });
  SendMailCls mail;
  mail.Events(&sink_);
  mail.ProtocolLevel(pl_standard);
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(server.Port());
  for (const auto& [line, accepted] : cases) {
    SCOPED_TRACE(line);
    sink_.onLine = [&, last = line](const std::string& told) {
      if (told.find(last) != told.npos) throw Thrown();
    };
    mail.NewTextMsg("Subject", "me@my.test", "a@you.test, b@you.test", "Text");
    EXPECT_THROW(mail.SendMail(), Thrown);
    ASSERT_EQ(mail.Outcomes().size(), 2u);
    for (const RecipientOutcome& outcome : mail.Outcomes()) {
      EXPECT_EQ(outcome.Accepted, accepted) << outcome.Address;
      EXPECT_EQ(outcome.ResultClass, accepted ? 0 : kPending) << outcome.Address;
    }
  }
}

}  // namespace
}  // namespace netro
