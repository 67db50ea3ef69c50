// A session with a mail server: opened, used for any number of messages, ended. SendMailCls keeps
// it from call to call; SMTPCls and the address check run a whole one with RunSmtpSession. Works on
// copies of its settings and touches nothing that an event may delete. Thread: one.
#pragma once

#include <netro/ProxySettings.h>

#include <memory>
#include <string>
#include <vector>

#include "mail/SmtpDialogue.h"
#include "mail/SmtpResult.h"
#include "mail/SmtpTransaction.h"
#include "socket/Wait.h"

namespace netro {

class SmtpSession {
 public:
  /// `settings` name the server and the sender's host.
  SmtpSession(const SMTPValues& settings, const ProxyValues& proxy, WaitClock waits,
              std::shared_ptr<SmtpResult> result, SmtpEvents events);

  // All are for one call at a time, the one of `mark`, and false when the session has failed, which
  // Result then tells; it is of no use any more.

  /// Connects, to `address` when there is one, and goes on until mail can be sent.
  bool Open(const CancelMark& mark, const std::string& address);
  /// One transaction, see RunTransaction.
  bool Deliver(const std::string& from, SmtpData& message,
               const std::vector<SmtpRecipient*>& recipients);
  bool Quit();
  /// The call is over; the session stays as it is.
  void Rest();
  /// Another call begins, which may be for other options of a message. False when the server has
  /// ended the session or spoken meanwhile.
  bool Resume(const CancelMark& mark, const SMTPValues& settings);

  const SmtpResult& Result() const { return *dialogue_.result; }
  SmtpDialogue& Dialogue() { return dialogue_; }

 private:
  const ProxyValues proxy_;
  SmtpDialogue dialogue_;
  TimePoint rested_;
};

/// Fills in the sender's host name where it is empty.
void CompleteSettings(SMTPValues& settings);

/// True when a session that failed so may be tried once more without protection (RFC 7435).
bool MayTryInClear(const SMTPValues& settings, const SmtpResult& result);
void NoteNoMemory(SmtpResult& result);

/// A message for one recipient, in a session of its own, under the caller's cancellation. True when
/// it reached SMTP_STEP_DONE. `order.from` is "admin@" when it is empty. The names that it has found
/// out (SenderHostName, ReceiverHostName) are left in `order.settings`. The result is held: an event may
/// delete who has it.
bool RunSmtpSession(SmtpOrder& order, SmtpData& message, const CancelMark& mark,
                    std::shared_ptr<SmtpResult> result, const SmtpEvents& events);

/// Only the lookup of the exchanger for the domain of `order.rcptTo`, with its transcript line.
bool RunExchangerLookup(SmtpOrder& order, const CancelMark& mark,
                        const std::shared_ptr<SmtpResult>& result);

}  // namespace netro
