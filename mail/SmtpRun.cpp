// A whole session for one recipient: Check → LookUp → Open → transaction → QUIT. LookUp is for
// sessions without a server; a simulation leaves the message out. The first failure ends the
// session without QUIT.
#include <netro/Localization.h>

#include <new>

#include "mail/MailAddress.h"
#include "mail/MailExchanger.h"
#include "mail/SmtpLogin.h"
#include "mail/SmtpSession.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

constexpr std::int32_t kTextInvalidAddress = 4007;

bool Check(SmtpDialogue& dialogue, const SmtpOrder& order) {
  const struct {
    const std::string& value;
    std::string_view forbidden;
  } checks[] = {{order.from, "<>"},
                {order.rcptTo, "<>"},
                {dialogue.settings.senderHostName, " \t<>"}};
  for (const auto& [value, forbidden] : checks) {
    if (!BreaksCommand(value, forbidden)) continue;
    const std::string text = GetMessageText(kTextInvalidAddress, {Printable(value)});
    dialogue.result->lastBuffer = text;
    return dialogue.Fail(SMTP_STEP_PRECHECK, SMTP_INITERROR, text, text);
  }
  const std::string credentials = CredentialsFault(dialogue.settings.options);
  const std::string& fault = order.fault.empty() ? credentials : order.fault;
  return fault.empty() || dialogue.FailText(SMTP_STEP_PRECHECK, SMTP_INITERROR, fault);
}

bool LookUp(SmtpDialogue& dialogue, const std::string& rcptTo, std::string& address) {
  SMTPValues& settings = dialogue.settings;
  SmtpResult& result = *dialogue.result;
  if (!settings.receiverHostName.empty()) return true;
  std::string lines;
  const auto show = [&](const std::string& line) {
    lines += (lines.empty() ? "" : "\r\n") + line;
    dialogue.transcript.Add(line);
  };
  const CancelMark& mark = dialogue.Mark();
  const std::string domain = ExtractAddress(rcptTo).host;
  const MailExchanger found = FindMailExchanger(settings, domain, mark, show);
  result.dnsError = mark.Cancelled() ? kErrCancelled : found.dnsError;
  if (mark.Cancelled()) return dialogue.FailWait(SMTP_STEP_AUTODNS, kErrCancelled);
  if (found.name.empty() && mark.Expired())
    return dialogue.FailWait(SMTP_STEP_AUTODNS, kErrTimedOut);
  if (found.name.empty()) {
    result.lastBuffer = lines;
    return dialogue.Fail(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, lines);
  }
  settings.receiverHostName = found.name;
  if (found.isGlue) address = found.address;
  dialogue.Succeed(SMTP_STEP_AUTODNS);
  return true;
}

// One whose protection fails and may be left out is opened once more without.
std::unique_ptr<SmtpSession> Open(SmtpOrder& order, const CancelMark& mark,
                                  const std::shared_ptr<SmtpResult>& result,
                                  const SmtpEvents& events) {
  const auto make = [&](const SMTPValues& settings) {
    return std::make_unique<SmtpSession>(settings, order.proxy, order.waits, result, events);
  };
  auto session = make(order.settings);
  SmtpDialogue& dialogue = session->Dialogue();
  dialogue.Use(&mark);
  std::string address;  // that came with the record of the exchanger
  if (!Check(dialogue, order) || !LookUp(dialogue, order.rcptTo, address)) return nullptr;
  order.settings.receiverHostName = dialogue.settings.receiverHostName;
  if (session->Open(mark, address)) return session;
  if (!MayTryInClear(order.settings, *result) || mark.Cancelled()) return nullptr;
  SMTPValues settings = order.settings;
  settings.options.security = smtpPlain;
  session = make(settings);
  return session->Open(mark, address) ? std::move(session) : nullptr;
}

bool Run(SmtpOrder& order, SmtpData& message, const CancelMark& mark,
         const std::shared_ptr<SmtpResult>& result, const SmtpEvents& events) {
  CompleteSettings(order.settings);
  const auto session = Open(order, mark, result, events);
  if (session == nullptr) return false;
  SmtpRecipient recipient;
  recipient.address = order.rcptTo;
  const std::string from =
      order.from.empty() ? "admin@" + order.settings.senderHostName : order.from;
  return session->Deliver(from, message, {&recipient}) && session->Quit();
}

// A session under the given result, which tells when memory ran out.
template <class Call>
bool RunWith(const std::shared_ptr<SmtpResult>& result, Call call) {
  *result = SmtpResult();
  try {
    return call();
  } catch (const std::bad_alloc&) {
    NoteNoMemory(*result);
    return false;
  }
}

}  // namespace

bool MayTryInClear(const SMTPValues& settings, const SmtpResult& result) {
  return settings.options.security == smtpTlsWhenOffered && settings.options.user.empty() &&
         result.stepID == SMTP_STEP_STARTTLS && result.result != SMTP_CANCELED;
}

void NoteNoMemory(SmtpResult& result) {
  result.stepID = SMTP_STEP_SOCKETERROR;
  result.result = kErrNoBuffers;
  result.resultMessage = SocketErrorText(kErrNoBuffers);
}

bool RunSmtpSession(SmtpOrder& order, SmtpData& message, const CancelMark& mark,
                    std::shared_ptr<SmtpResult> result, const SmtpEvents& events) {
  return RunWith(result, [&] { return Run(order, message, mark, result, events); });
}

bool RunExchangerLookup(SmtpOrder& order, const CancelMark& mark,
                        const std::shared_ptr<SmtpResult>& result) {
  order.settings.protocolLevel = pl_standard;
  return RunWith(result, [&] {
    SmtpDialogue dialogue(order.settings, order.waits, result, SmtpEvents());
    dialogue.Use(&mark);
    std::string address;
    const bool found = LookUp(dialogue, order.rcptTo, address);
    order.settings.receiverHostName = dialogue.settings.receiverHostName;
    return found;
  });
}

}  // namespace netro
