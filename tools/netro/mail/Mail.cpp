// "netro mail": a message composed and sent with SendMailCls.

#include "mail/Mail.h"

#include <netro/SendMailCls.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "mail/MailDisplay.h"
#include "mail/MailMessage.h"
#include "mail/MailOptions.h"
#include "mail/MailOutput.h"
#include "terminal/Interrupt.h"
#include "terminal/Stopwatch.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

bool Send(SendMailCls& mail, const MailOptions& options) {
  MailDisplay display(options.transcript && !options.json);
  mail.Events(&display);
  mail.ProtocolLevel(pl_standard);
  mail.Simulation(options.simulate);
  const InterruptGuard guard(mail);
  const bool good = mail.SendMail();
  mail.Events(nullptr);
  return good;
}

int RunMail(const MailOptions& options) {
  SendMailCls mail;
  UseMailConnection(mail, options.connection);
  ComposeMail(options, mail);
  if (options.print) {
    PrintForeign(mail.MimeBuffer());
    return mail.MimeBuffer().empty() ? QueryFailed : Success;
  }
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
