#include "mail/SmtpSession.h"

#include <utility>

#include "mail/SmtpOpening.h"
#include "platform/Clock.h"
#include "platform/HostInfo.h"

namespace netro {
namespace {

// What leads to the server may have forgotten a connection that rested for longer.
constexpr std::chrono::seconds kShortRest{10};

}  // namespace

SmtpSession::SmtpSession(const SMTPValues& settings, const ProxyValues& proxy, WaitClock waits,
                         std::shared_ptr<SmtpResult> result, SmtpEvents events)
    : proxy_(proxy), dialogue_(settings, waits, std::move(result), std::move(events)) {}

bool SmtpSession::Open(const CancelMark& mark, const std::string& address) {
  dialogue_.Use(&mark);
  return OpenSmtp(dialogue_, proxy_, address);
}

bool SmtpSession::Deliver(const std::string& from, SmtpData& message,
                          const std::vector<SmtpRecipient*>& recipients) {
  return RunTransaction(dialogue_, from, message, recipients);
}

bool SmtpSession::Quit() {
  if (!dialogue_.Command(SMTP_STEP_QUIT, "QUIT")) return false;
  dialogue_.connection.Close();
  dialogue_.Succeed(SMTP_STEP_DONE);
  return true;
}

void SmtpSession::Rest() {
  dialogue_.connection.BeginReply();
  dialogue_.Use(nullptr);
  rested_ = Now();
}

bool SmtpSession::Resume(const CancelMark& mark, const SMTPValues& settings) {
  const SmtpReply& reply = dialogue_.connection.Reply();
  WaitUntil(mark, TimePoint::max(), [] { return true; });  // takes in what has come
  if (!dialogue_.connection.IsOpen() || reply.HasBytes()) return false;
  dialogue_.Use(&mark);
  dialogue_.Restart(settings);
  dialogue_.idled = Now() - rested_ > kShortRest;
  return true;
}

void CompleteSettings(SMTPValues& settings) {
  if (settings.options.lastStep < SMTP_STEP_DATA) settings.simulation = true;
  if (settings.senderHostName.empty()) settings.senderHostName = ReadHostName();
  if (settings.senderHostName.empty()) settings.senderHostName = "localhost";
}

}  // namespace netro
