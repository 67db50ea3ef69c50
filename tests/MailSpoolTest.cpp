// MailSpool against scripted servers; the kills are in cli/spool_test.py.
#include <netro/MailSpool.h>

#include "SendMailKit.h"
#include "mail/BounceMessage.h"
#include "mail/SpoolFile.h"
#include "mail/SpoolSchedule.h"
#include "platform/JournalFile.h"
#include "support/DateText.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

struct SpoolSink : MailSpoolEvents {
  void Delivered(const std::string&, const SpooledRecipient& to) override {
    Add("delivered " + to.Address);
  }
  void Deferred(const std::string&, const SpooledRecipient& to) override { Add("deferred ", to); }
  void Failed(const std::string&, const SpooledRecipient& to) override { Add("failed ", to); }
  void Bounced(const std::string&, const std::string&) override { Add("bounced"); }
  void SetAside(const std::string& path) override {
    Add("aside " + std::filesystem::path(path).filename().string());
  }
  void Add(const std::string& what, const SpooledRecipient& to) {
    Add(what + to.Address + ": " + to.Answer);
  }
  void Add(const std::string& line) {
    lines.push_back(line);
    if (onEvent) onEvent();
  }

  std::vector<std::string> lines;
  std::function<void()> onEvent;
};

/// Takes everything but what the address of a recipient asks for.
Answer ByRecipient(const std::string& command) {
  if (command == "RCPT TO:<no@xy.test>") return "550 5.1.1 no\x1B such user\r\n";
  if (command == "RCPT TO:<later@xy.test>") return "450 later\r\n";
  return SmtpServer::Politely(command);
}

struct Spool : SendMailTest {
  Spool() { Renew(); }

  void Renew() {
    spool_ = std::make_unique<MailSpool>();
    spool_->Folder(folder_ / "spool");
    spool_->Events(&sink_);
    spool_->Mail().SenderHostName("me.test");
    spool_->Mail().ReceiverHostName("127.0.0.1");
    spool_->Mail().Port(server_.Port());
  }
  void Put(const std::string& to) {
    Compose(to);
    ASSERT_TRUE(mail_->SpoolMsg(spool_->Folder())) << mail_->ResultMessage();
  }
  std::vector<std::string> Deliver(bool all = false) {
    sink_.lines.clear();
    EXPECT_TRUE(spool_->DeliverDue(all)) << spool_->ResultMessage();
    return sink_.lines;
  }
  std::string PathOf(const std::string& id) { return spool_->Folder() + "/" + id + ".mail"; }

  TemporaryFolder folder_;
  SmtpServer server_{ByRecipient};
  SpoolSink sink_;
  std::unique_ptr<MailSpool> spool_;
};

using Lines = std::vector<std::string>;

TEST_F(Spool, ItsMessageArrivesAsItWouldHaveAndIsGone) {
  Put("a@xy.test");
  EXPECT_TRUE(HasMode(spool_->Folder(), 0700));
  SendTo(server_);
  EXPECT_TRUE(mail_->SendMail());
  EXPECT_LE(spool_->NextTry(), WallClock());
  EXPECT_EQ(Deliver(), Lines{"delivered a@xy.test"});
  ASSERT_EQ(server_.Messages().size(), 2u);
  EXPECT_EQ(server_.Messages()[0], server_.Messages()[1]);
  EXPECT_TRUE(spool_->List().empty());
  EXPECT_EQ(spool_->NextTry(), 0);
  EXPECT_TRUE(std::filesystem::is_empty(spool_->Folder()));
}

TEST_F(Spool, EachRecipientHasItsOwnFate) {
  Put("a@xy.test, later@xy.test, no@xy.test");
  const std::string id = mail_->SpoolID();
  spool_->Bounces(false);
  EXPECT_EQ(Deliver(), (Lines{"delivered a@xy.test", "deferred later@xy.test: 450 later",
                              "failed no@xy.test: 550 5.1.1 no  such user"}));
  EXPECT_EQ(Deliver(), Lines{});  // not due
  const auto mails = spool_->List();
  ASSERT_EQ(mails.size(), 1u);
  EXPECT_EQ(mails[0].Id + mails[0].Sender, id + "jane@xy.test");
  const SpooledRecipient& later = mails[0].Recipients[1];
  EXPECT_EQ(later.Tries * 1000 + later.Result, 1450);
  EXPECT_EQ(later.NextTry, mails[0].NextTry);
  EXPECT_NEAR((later.NextTry - later.LastTry) * 86400, 300, 0.01);
  EXPECT_EQ(spool_->NextTry(), later.NextTry);
  EXPECT_TRUE(mails[0].Recipients[2].Reported);
  AdvanceClockForTests(std::chrono::minutes(6));
  EXPECT_EQ(Deliver(), Lines{"deferred later@xy.test: 450 later"});
  EXPECT_EQ(Deliver(true).size(), 1u);
  AdvanceClockForTests(std::chrono::hours(48));
  EXPECT_EQ(Deliver(), Lines{"failed later@xy.test: 450 later"});
  EXPECT_TRUE(spool_->List().empty());
}

TEST_F(Spool, AFailureComesBackOnceAndItsBounceNever) {
  Put("no@xy.test, later@xy.test");
  const std::string id = mail_->SpoolID();
  bool first = true;
  sink_.onEvent = [&] {
    if (sink_.lines.back() == "bounced" && std::exchange(first, false)) {
      throw std::runtime_error("the program ends before the bounce is sent");
    }
  };
  EXPECT_THROW(spool_->DeliverDue(), std::runtime_error);
  const auto mails = spool_->List();
  ASSERT_EQ(mails.size(), 2u);
  EXPECT_EQ(mails[1].Id, id + "-b0-1");
  EXPECT_EQ(mails[1].Sender, "");
  EXPECT_EQ(mails[1].Recipients[0].Address, "jane@xy.test");
  const std::string bounce = ReadFile(PathOf(mails[1].Id));
  EXPECT_NE(bounce.find("Status: 5.1.1"), bounce.npos);
  EXPECT_EQ(bounce.find('\x1B'), bounce.npos);
  // Whatever becomes of the bounce, it makes no further one.
  spool_->Mail().ReceiverHostName("");
  spool_->Mail().Port(25);
  const DnsServer names(KnowNothing);
  spool_->Mail().DNSURL(UrlOf(names));
  sink_.lines.clear();
  EXPECT_TRUE(spool_->DeliverDue(true));
  EXPECT_EQ(std::ranges::count(sink_.lines, "bounced"), 1) << Joined(sink_.lines);  // of "later"
  EXPECT_TRUE(spool_->List().empty());
}

TEST_F(Spool, WhatMayHaveArrivedIsNotSentAgain) {
  std::atomic<bool> cut = true;  // read by the server's thread
  SmtpServer server([&](const std::string& command) -> Answer {
    if (command == "." && cut) return {"", After::Close};
    return SmtpServer::Politely(command);
  });
  spool_->Mail().Port(server.Port());
  spool_->Bounces(false);
  Put("a@xy.test");
  sink_.onEvent = [&] { cut = false; };
  EXPECT_EQ(Deliver().size(), 1u);
  EXPECT_TRUE(sink_.lines[0].starts_with("failed a@xy.test"));
  EXPECT_EQ(Deliver(true), Lines{});
  EXPECT_EQ(server.Messages().size(), 1u);
}

TEST_F(Spool, AServerThatIsAwayIsAskedOnce) {
  for (const char* to : {"a@xy.test", "b@xy.test", "c@xy.test"}) Put(to);
  SmtpServer busy([](const std::string&) -> Answer { return {"421 busy\r\n", After::Close}; });
  spool_->Mail().Port(busy.Port());
  Lines told = Deliver();
  std::ranges::sort(told);  // those of one millisecond have no order
  EXPECT_EQ(told, (Lines{"deferred a@xy.test: 421 busy", "deferred b@xy.test: 421 busy",
                         "deferred c@xy.test: 421 busy"}));
  EXPECT_EQ(busy.Connections(), 1u);
}

TEST_F(Spool, OthersLeaveAClaimedMessageAlone) {
  Put("a@xy.test");
  JournalFile other;
  ASSERT_EQ(other.Claim(PathOf(mail_->SpoolID())), 0);
  EXPECT_EQ(Deliver(), Lines{});
  EXPECT_FALSE(spool_->Remove(mail_->SpoolID()));
  other.Close();
  EXPECT_TRUE(spool_->Remove(mail_->SpoolID()));
  EXPECT_FALSE(spool_->Remove("../" + mail_->SpoolID()));
  EXPECT_EQ(spool_->Result(), 10022);
}

TEST_F(Spool, BadFilesAreSetAsideAndCutRecordsForgotten) {
  Put("later@xy.test");
  const std::string path = PathOf(mail_->SpoolID());
  const std::string good = ReadFile(path);
  WriteFile(spool_->Folder() + "/0.mail", "netro-spool 2\n\n");
  WriteFile(spool_->Folder() + "/1.mail", good.substr(0, good.size() - 1));
  WriteFile(spool_->Folder() + "/2.mail", good + "delivered 1 no\n");
  std::filesystem::create_symlink(path, spool_->Folder() + "/9.mail");
  WriteFile(path, good + "delivered 0 2026");
  sink_.lines.clear();
  EXPECT_FALSE(spool_->DeliverDue());  // because of the link
  EXPECT_EQ(sink_.lines, (Lines{"aside 0.bad", "aside 1.bad", "aside 2.bad",
                                "deferred later@xy.test: 450 later"}));
  ASSERT_EQ(spool_->List().size(), 1u);
  EXPECT_EQ(spool_->List()[0].Recipients[0].Tries, 1);
}

// What is sent to an address is recorded for it, or not sent.
TEST_F(Spool, AnAddressThatReadsAsAnotherGetsNothing) {
  Put("a@xy.test");
  const std::string path = PathOf(mail_->SpoolID());
  const std::string file = ReadFile(path);
  const std::size_t at = file.find("\nto a@xy.test") + 13;
  WriteFile(path, file.substr(0, at) + " (home)" + file.substr(at));
  spool_->Bounces(false);
  EXPECT_EQ(Deliver(), Lines{"failed a@xy.test (home): No address"});
  EXPECT_EQ(server_.Messages().size(), 0u);
}

TEST_F(Spool, AnEventMayEndItAndNothingIsForgotten) {
  Put("a@xy.test");
  Put("b@xy.test");
  sink_.onEvent = [&] { spool_->StopWaiting(); };
  EXPECT_FALSE(spool_->DeliverDue());
  EXPECT_EQ(spool_->Result(), 9999);
  EXPECT_EQ(spool_->List().size(), 1u);
  sink_.onEvent = [&] { spool_.reset(); };
  EXPECT_FALSE(spool_->DeliverDue());
  sink_.onEvent = nullptr;
  Renew();
  EXPECT_TRUE(spool_->List().empty());
  EXPECT_EQ(server_.Messages().size(), 2u);
}

TEST_F(Spool, AStopInsideASessionLeavesTheMessage) {
  Put("a@xy.test");
  spool_->Mail().Events(&events_);
  spool_->Mail().ProtocolLevel(pl_standard);
  events_.onLine = [&](const std::string& line) {
    if (line.find("MAIL FROM") != line.npos) spool_->Kill();
  };
  EXPECT_FALSE(spool_->DeliverDue());
  EXPECT_EQ(spool_->Result(), 9999);
  ASSERT_EQ(spool_->List().size(), 1u);
  EXPECT_EQ(spool_->List()[0].Recipients[0].Tries, 0);
  // What is taken before an event throws is recorded.
  events_.onLine = [](const std::string& line) {
    if (line.find("QUIT") != line.npos) throw std::runtime_error("QUIT");
  };
  EXPECT_THROW(spool_->DeliverDue(), std::runtime_error);
  events_.onLine = nullptr;
  EXPECT_EQ(Deliver(), Lines{});
  EXPECT_TRUE(spool_->List().empty());
  EXPECT_EQ(server_.Messages().size(), 1u);
}

TEST_F(Spool, TroubleWithTheFolderIsNamed) {
  WriteFile(folder_ / "file", "");
  Compose("a@xy.test");
  EXPECT_FALSE(mail_->SpoolMsg(folder_ / "file/spool"));
  ExpectResult(20020, folder_ / "file/spool" + ": Not a directory");
  EXPECT_FALSE(spool_->DeliverDue());
  EXPECT_EQ(spool_->ResultMessage(), spool_->Folder() + ": No such file or directory");
  EXPECT_FALSE(mail_->SpoolMsg("/dev/null"));
  // Nobody could be told of an address that is none.
  for (const char* to : {"b@xy.test, c", "b@xy.test, \"d\x01\"@xy.test", ""}) {
    Compose(to);
    EXPECT_FALSE(mail_->SpoolMsg(spool_->Folder())) << to;
  }
  EXPECT_FALSE(std::filesystem::exists(spool_->Folder()));
}

TEST(SpoolSchedule, HasTimes) {
  MailSpool spool;
  EXPECT_FALSE(spool.RetrySeconds({}) || spool.RetrySeconds({60, 0}));
  EXPECT_EQ(spool.RetrySeconds(), (std::vector<std::int32_t>{300, 900, 1800, 3600}));
  EXPECT_TRUE(spool.RetrySeconds({60}));
  EXPECT_EQ(spool.RetrySeconds(), (std::vector<std::int32_t>{60}));
}

TEST(SpoolSchedule, TriesAndEnds) {
  const SpoolSchedule schedule{{300, 900, 1800, 3600}, 172800};
  constexpr Date kCreated = 46000;
  const auto at = [](double seconds) { return AddSeconds(kCreated, seconds); };
  const struct {
    std::int32_t resultClass, tries;  // before
    double now;                       // seconds since it was created, as the next
    SpoolStateEnum state;
    double next;
    std::int32_t step = SMTP_STEP_RCPTTO;
  } kCases[] = {{3011, 0, 1, SpoolPending, 301, SMTP_STEP_AUTH},
                {3011, 0, 1, SpoolPending, 301, SMTP_STEP_STARTTLS},
                {3011, 0, 1, SpoolFailed, 0, SMTP_STEP_MAILFROM},
                {3015, 0, 1, SpoolPending, 301},
                {3017, 1, 400, SpoolPending, 1300},
                {3014, 3, 9000, SpoolPending, 12600},
                {3016, 90, 9000, SpoolPending, 12600},
                {3015, 47, 172000, SpoolPending, 172800},
                {3015, 48, 172800, SpoolFailed, 0},
                {3015, 0, -86400, SpoolPending, -86100},
                {3010, 0, 1, SpoolFailed, 0},
                {3011, 0, 1, SpoolFailed, 0},
                {3013, 0, 1, SpoolFailed, 0},
                {3019, 0, 1, SpoolMayHaveArrived, 0}};
  for (const auto& c : kCases) {
    SpooledRecipient recipient;
    recipient.Tries = c.tries;
    RecipientOutcome outcome;
    outcome.ResultClass = c.resultClass;
    outcome.StepID = c.step;
    EXPECT_TRUE(JudgeTry(schedule, kCreated, outcome, at(c.now), recipient));
    EXPECT_EQ(recipient.State, c.state) << c.resultClass << " at " << c.now;
    EXPECT_EQ(recipient.NextTry, c.next == 0 ? 0 : at(c.next)) << c.resultClass << " at " << c.now;
    EXPECT_EQ(recipient.Tries, c.tries + 1);
    if (c.resultClass != 3011) continue;
    EXPECT_EQ(IsServerDown(outcome), c.state == SpoolPending) << c.step;
  }
  EXPECT_FALSE(IsDue(schedule, at(2), at(1)));
  EXPECT_TRUE(IsDue(schedule, at(2), at(2)));
  EXPECT_TRUE(IsDue(schedule, at(3700), at(0))) << "the clock was set back";
}

TEST(SpoolFile, OnlyWhatWasWrittenIsRead) {
  const std::string created = "created 2026-11-21T10:45:00.123Z\n";
  const std::string good = "netro-spool 1\n" + created + "from \nto a@b.test\nsize 3\n\n";
  SpooledMail mail;
  std::size_t at = 0;
  EXPECT_EQ(ParseSpoolHead(good + "abc", mail, at), SpoolHeadEnd::Good);
  EXPECT_EQ(at, good.size());
  for (std::size_t size = 0; size < good.size(); ++size)
    EXPECT_EQ(ParseSpoolHead(good.substr(0, size), mail, at), SpoolHeadEnd::Cut) << size;
  const std::string rest = "from a@b.test\nto a@b.test\nsize 3\n\n";
  const std::string begin = "netro-spool 1\n" + created;
  for (const std::string& bad :
       {"netro-spool 2\n" + created + rest, "netro-spool 1\n" + rest,
        "netro-spool 1\ncreated yesterday\n" + rest, begin + "to\n" + rest,
        begin + "to <a@b.test>\n" + rest, begin + "to a\r@b.test\n" + rest,
        begin + "size -1\n" + rest, begin + "size 99999999999999999999\n" + rest,
        begin + "X: y\n" + rest})
    EXPECT_EQ(ParseSpoolHead(bad, mail, at), SpoolHeadEnd::Bad) << bad;
  const std::string time = "2026-11-21T10:45:00.123Z";
  for (const std::string& bad :
       {"delivered 1 " + time + " - 0 0 ok\n",
        "delivered 0 " + time + " - 0 0 ok\npending 0 " + time + " " + time + " 0 0 again\n",
        std::string("delivered 0 now - 0 0 ok\n"), "pending 0 " + time + " - 3015 450 no\n",
        "delivered 0 " + time + " - x 0 ok\n", std::string("reported 0\n"), std::string("\n")}) {
    ASSERT_EQ(ParseSpoolHead(good, mail, at), SpoolHeadEnd::Good);
    EXPECT_FALSE(ApplySpoolRecords(bad, mail, at)) << bad;
  }
}

TEST(Bounces, HaveTheServersStatusOrOneOfTheirOwn) {
  const struct {
    std::int32_t resultClass, result;
    const char *answer, *status;
  } kCases[] = {{3011, 550, "550 5.1.1 no", "5.1.1"},   {3011, 550, "550-5.7.1", "5.7.1"},
                {3011, 550, "550 5.1.1x", "5.0.0"},     {3011, 550, "550", "5.0.0"},
                {3011, 550, "550 5.1.1000 x", "5.0.0"}, {3010, 59, "", "5.1.2"},
                {3013, 97, "5.9.9", "5.1.3"},           {3017, 10061, "refused", "4.4.7"},
                {3015, 450, "450 4.2.0 grey", "4.2.0"}};
  for (const auto& c : kCases) {
    SpooledRecipient recipient;
    recipient.State = SpoolFailed;
    recipient.ResultClass = c.resultClass;
    recipient.Result = c.result;
    recipient.Answer = c.answer;
    EXPECT_EQ(StatusCode(recipient), c.status) << c.answer;
  }
}

}  // namespace
}  // namespace netro
