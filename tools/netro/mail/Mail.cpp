// "netro mail": a message composed and sent with SendMailCls.

#include "mail/Mail.h"

#include <netro/SendMailCls.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>

#include "mail/MailDisplay.h"
#include "mail/MailFolder.h"
#include "mail/MailMessage.h"
#include "mail/MailOptions.h"
#include "mail/MailOutput.h"
#include "mail/MailTrace.h"
#include "terminal/FailureText.h"
#include "terminal/Interrupt.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

std::int32_t LastStep(const MailOptions& options) {
  constexpr std::pair<const char*, std::int32_t> kSteps[] = {
      {"", SMTP_STEP_DONE},          {"connect", SMTP_STEP_CONNECT}, {"helo", SMTP_STEP_HELO},
      {"tls", SMTP_STEP_STARTTLS},   {"login", SMTP_STEP_AUTH},      {"from", SMTP_STEP_MAILFROM},
      {"to", SMTP_STEP_RCPTTO}};
  for (const auto& [name, step] : kSteps) {
    if (options.lastStep == name) return step;
  }
  throw UsageError("--quit-after: connect, helo, tls, login, from and to are possible, not \"" +
                   options.lastStep + "\"");
}

bool Send(SendMailCls& mail, const MailOptions& options) {
  MailDisplay display(options.transcript && !options.json);
  mail.Events(&display);
  mail.ProtocolLevel(pl_standard);
  mail.Simulation(options.simulate);
  mail.LastStep(LastStep(options));
  const InterruptGuard guard(mail);
  const bool good = mail.SendMail();
  mail.Events(nullptr);
  return good;
}

int Trace(SendMailCls& mail, const MailOptions& options) {
  MailDisplay display(options.transcript && !options.json);
  mail.Events(&display);
  mail.ProtocolLevel(pl_standard);
  const auto traces = [&] {
    const InterruptGuard guard(mail);
    return mail.TraceMail();
  }();
  mail.Events(nullptr);
  if (options.json) {
    PrintTraceJson(mail, traces);
  } else {
    PrintTrace(traces);
  }
  if (traces.empty()) ShowMessage(FailureText("nobody was asked", mail.Result(), mail.ResultMessage()));
  return IsGood(traces) ? Success : QueryFailed;
}

/// What is in a folder has its addresses and text already.
void RefuseMessage(const MailOptions& options) {
  if (options.hasFrom || !options.to.empty() || !options.cc.empty() || !options.bcc.empty() ||
      !options.subject.empty() || options.hasText || !options.textFile.empty() ||
      !options.htmlFile.empty() || !options.attachments.empty() || !options.headers.empty() ||
      !options.messageID.empty() || !options.messageFile.empty() || options.simulate ||
      options.trace || options.print) {
    throw UsageError("--deliver and --list go without a message");
  }
}

int RunMail(const MailOptions& options) {
  if (!options.deliverFolder.empty() || !options.listFolder.empty()) {
    RefuseMessage(options);
    return options.listFolder.empty() ? DeliverFolder(options) : ListMailFolder(options);
  }
  SendMailCls mail;
  UseMailConnection(mail, options.connection);
  ComposeMail(options, mail);
  if (!options.spoolFolder.empty()) return SpoolMail(mail, options);
  if (options.print) {
    PrintForeign(mail.MimeBuffer());
    return mail.MimeBuffer().empty() ? QueryFailed : Success;
  }
  if (options.trace) return Trace(mail, options);
  LastStep(options);
  const Stopwatch watch;
  const bool good = Send(mail, options);
  if (options.json) {
    PrintMailJson(mail, options, watch.Seconds());
  } else {
    PrintMail(mail, options);
  }
  if (!good) ExplainMail(mail, options);
  return good ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpMail(CLI::App& options) {
  const auto values = std::make_shared<MailOptions>();
  DeclareMailOptions(options, *values);
  return [values] { return RunMail(*values); };
}

}  // namespace netro::tool
