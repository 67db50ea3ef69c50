#include <netro/MailSpool.h>
#include <netro/SMTPCls.h>
#include <netro/SendMailCls.h>
#include <netro/testkit/SmtpServer.h>

#include <algorithm>
#include <utility>

#include "Scenario.h"
#include "Servers.h"
#include "tests/TemporaryFolder.h"

namespace netro::torture {
namespace {

using testkit::SmtpServer;

// What the calls are made with needs no memory in them.
const std::string kRecipients = "a@you.test, b@you.test";

SmtpServer& Server() {
  static auto& server = *new SmtpServer([](const std::string& command) -> SmtpServer::Answer {
    if (command.starts_with("EHLO")) {
      return "250-mx.test\r\n250-PIPELINING\r\n250-AUTH PLAIN\r\n250 8BITMIME\r\n";
    }
    if (command.starts_with("AUTH")) return "235 welcome\r\n";
    return SmtpServer::Politely(command);
  });
  return server;
}

template <class Mail>
void Prepare(World& world, Mail& mail) {
  mail.Events(&world.events);
  mail.DNSURL(NameServerUrl());
  mail.Port(world.Via(Server().Port()));
  mail.SenderHostName("me.test");
  mail.ProtocolLevel(pl_standard);
}

const std::string& File() {
  static const auto& folder = *new TemporaryFolder();
  static const std::string file = folder / "attached.txt";
  static const bool written = (WriteFile(file, "attached\n"), true);
  (void)written;
  return file;
}

void PrepareFile(World& world, SendMailCls& mail) {
  Prepare(world, mail);
  File();
}

void PrepareLogin(World& world, SendMailCls& mail) {
  Prepare(world, mail);
  mail.ReceiverHostName("127.0.0.1");
  mail.Extensions(true);
  mail.User("me");
  mail.Password("secret");
  mail.AllowPlainPasswords(true);
}

bool Deliver(SMTPCls& smtp) {
  smtp.ReceiverHostName("");
  return smtp.SMTP("from@me.test", "to@you.test", "a line\r\n");
}

std::int32_t IsDelivered(SMTPCls& smtp, bool done) {
  return Told(done, smtp.StepID() == SMTP_STEP_DONE, smtp.Result());
}

bool Send(SendMailCls& mail) {
  return mail.NewTextMsg("Subject", "from@me.test", kRecipients, "Text") &&
         mail.SendMail();
}

std::int32_t IsSent(SendMailCls& mail, bool done) {
  bool all = !mail.Outcomes().empty();
  for (const RecipientOutcome& outcome : mail.Outcomes()) all = all && outcome.Accepted;
  return Told(done, all, mail.Result());
}

bool SendFile(SendMailCls& mail) {
  return mail.NewTextMsg("Subject", "from@me.test", "a@you.test", "Text") &&
         mail.AddAttachment(File()) && mail.SendMail();
}

const TemporaryFolder& SpoolFolder() {
  static const auto& folder = *new TemporaryFolder();
  return folder;
}

// A mail that may have arrived is not sent again, and told as failed.
class Fates : public MailSpoolEvents {
 public:
  bool Take() { return std::exchange(failed_, false); }

 private:
  void Failed(const std::string&, const SpooledRecipient&) override { failed_ = true; }

  bool failed_ = false;
};

Fates& SpoolFates() {
  static auto& fates = *new Fates;
  return fates;
}

std::size_t taken = 0;  // by the server, before a call

void PrepareSpool(World& world, MailSpool& spool) {
  spool.Folder(SpoolFolder().Path());
  spool.Bounces(false);
  spool.Events(&SpoolFates());
  Prepare(world, spool.Mail());
  taken = Server().Messages().size();
}

bool Empty(MailSpool& spool) {
  SendMailCls& mail = spool.Mail();
  return mail.NewTextMsg("Subject", "from@me.test", "a@you.test", "Text") &&
         mail.SpoolMsg(spool.Folder()) && spool.DeliverDue(true);
}

// Whatever fails, the mail is in the spool until the server has taken it, or its failure is told.
std::int32_t IsEmpty(MailSpool& spool, bool done) {
  const std::int32_t error = std::max(spool.Result(), spool.Mail().Result());
  const std::size_t now = Server().Messages().size();
  const bool arrived = now > std::exchange(taken, now);
  const bool failed = SpoolFates().Take();
  const std::vector<SpooledMail> left = spool.List();
  for (const SpooledMail& mail : left) spool.Remove(mail.Id);
  if (!done) return Told(false, false, error);
  if (!left.empty()) return 1;
  return arrived ? kDone : failed ? 1 : kWrongResult;
}

}  // namespace

std::vector<Scenario> MailScenarios() {
  return {
      Make<SMTPCls>("SMTP", Prepare<SMTPCls>, Deliver, IsDelivered),
      Make<SendMailCls>("SendMail", Prepare<SendMailCls>, Send, IsSent),
      Make<SendMailCls>("SendMail with a login", PrepareLogin, Send, IsSent),
      Make<SendMailCls>("SendMail of a file", PrepareFile, SendFile, IsSent),
      Make<MailSpool>("MailSpool", PrepareSpool, Empty, IsEmpty),
      Make<SendMailCls>(
          "CheckeMailAddress", Prepare<SendMailCls>,
          [](SendMailCls& mail) { return mail.CheckeMailAddress("a@you.test"); },
          [](SendMailCls& mail, bool good) { return Told(good, true, mail.Result()); }),
  };
}

}  // namespace netro::torture
