// What would happen to each recipient of a message: sessions that end before it.
#include "mail/MailAddress.h"
#include "mail/MailCall.h"
#include "mail/MailOutcome.h"

namespace netro {
namespace {

// One session as far as the recipient.
ExchangerTrace TraceHost(const SmtpOrder& order, const std::string& host, const CancelMark& mark,
                         const SmtpEvents& events) {
  ExchangerTrace trace;
  trace.Host = host;
  trace.Addresses = AddressesOf(host, order, mark);
  SMTPValues settings = order.settings;
  settings.receiverHostName = host;
  settings.simulation = true;
  const auto result = std::make_shared<SmtpResult>();
  SmtpSession session(settings, order.proxy, order.waits, result, events);
  SmtpRecipient recipient;
  recipient.address = order.rcptTo;
  const bool open = session.Open(mark, {});
  const SmtpDialogue& dialogue = session.Dialogue();
  trace.Address = dialogue.connection.Address();
  trace.Greeting = WithoutLineEnd(dialogue.greeting);
  trace.Extensions = dialogue.extensions.lines;
  trace.Protected = dialogue.connection.IsProtected();
  trace.TlsInfo = dialogue.connection.TlsInfo();
  trace.LoggedIn = open && !settings.options.user.empty();
  SmtpData none({}, DotRule::AllDots);
  const bool taken = open && session.Deliver(order.from, none, {&recipient});
  trace.SenderAccepted = result->accepted >= SMTP_STEP_MAILFROM;
  trace.RecipientAccepted = taken;
  if (taken) session.Quit();
  trace.StepID = taken ? static_cast<std::int32_t>(SMTP_STEP_DONE) : result->stepID;
  trace.Result = taken ? 0 : result->result;
  trace.ResultMessage = WithoutLineEnd(result->resultMessage);
  return trace;
}

}  // namespace

std::vector<MailTrace> SendMailCls::TraceMail() {
  return MailCall::Run(*this, [](MailCall& call) { return call.Trace(); });
}

std::vector<MailTrace> MailCall::Trace() {
  std::vector<MailTrace> traces;
  std::vector<RecipientOutcome> outcomes;
  if (!MayBegin(outcomes)) return traces;
  SmtpOrder order = Order(Sender(), {});
  CompleteSettings(order.settings);
  RefuseWrong(outcomes, order);
  for (const RecipientOutcome& outcome : outcomes) {
    if (mark_.Cancelled()) break;
    MailTrace& trace = traces.emplace_back();
    trace.Address = outcome.Address;
    if (outcome.StepID == SMTP_STEP_PRECHECK) {
      trace.ResultClass = outcome.ResultClass;
      trace.ResultMessage = outcome.ResultMessage;
      continue;
    }
    order.rcptTo = outcome.Address;
    TraceOne(order, trace);
  }
  if (call_->alive) owner_.SetResult(mark_.Cancelled() ? kErrCancelled : 0, {});
  return traces;
}

void MailCall::TraceOne(const SmtpOrder& order, MailTrace& trace) const {
  const MailRoute route =
      FindRoute(order, ExtractAddress(order.rcptTo).host, mark_, Events());
  if (route.hosts.empty()) {
    SmtpRecipient recipient;
    recipient.stepID = route.lookup->stepID;
    recipient.result = route.lookup->result;
    recipient.dnsError = route.lookup->dnsError;
    trace.ResultClass = ClassOf(recipient);
    trace.ResultMessage = SocketErrorText(recipient.dnsError);
  }
  for (const std::string& host : route.hosts) {
    if (mark_.Cancelled()) return;
    trace.Exchangers.push_back(TraceHost(order, host, mark_, Events()));
  }
}

}  // namespace netro
