// One running call of a SendMailCls: a delivery, a check or a lookup. Made on the caller's stack;
// it works on copies of the settings and outlives a deletion of the object, which it then no longer
// touches.
#pragma once

#include <netro/Localization.h>
#include <netro/SendMailCls.h>

#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "dns/DnsExchange.h"
#include "mail/AddressSyntax.h"
#include "mail/SmtpSession.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "socket/Wait.h"

namespace netro {

struct SpooledMail;

class MailCall {
 public:
  /// Runs `work` on a new call. Inside another call of the object nothing is done, and the result
  /// is an empty one. `stale` are the outcomes of the call before, which must not pass for those of
  /// one that has not even begun.
  template <class Work>
  static auto Run(SendMailCls& owner, Work work, std::vector<RecipientOutcome>* stale = nullptr) {
    using Outcome = std::invoke_result_t<Work, MailCall&>;
    const BusyScope busy(owner.call_);
    if (busy.Refused()) return Outcome();
    if (stale != nullptr) stale->clear();
    const auto call = owner.call_;
    try {
      MailCall running(owner);
      return work(running);
    } catch (const std::bad_alloc&) {
      if (call->alive) owner.SetResult(kErrNoBuffers, SocketErrorText(kErrNoBuffers));
      return Outcome();
    }
  }

  bool Deliver();
  bool Spool(const std::string& folder);
  bool EndSession();
  std::vector<MailTrace> Trace();
  bool Check(const std::string& address, const std::string& sender,
             const std::string& senderHostName);
  /// Of an exchanger.
  enum class Part { Name, Address };
  std::string Gateway(const std::string& domain, Part part);
  std::string Administrator(const std::string& address);

 private:
  explicit MailCall(SendMailCls& owner);

  bool Fail(std::int32_t result, std::string message);
  std::string FailLookup(std::int32_t error);
  SmtpOrder Order(std::string from, std::string rcptTo) const;
  SmtpEvents Events() const;

  std::int32_t AskForAdministrator(const DnsServer& server, const std::string& host,
                                   std::string& found) const;

  HostRule Hosts() const;
  std::vector<RecipientOutcome> Recipients() const;
  std::string SenderFault() const;
  bool FillEnvelope(SpooledMail& mail);
  void DeliverAll(std::vector<RecipientOutcome>& outcomes);
  bool MayBegin(std::vector<RecipientOutcome>& outcomes);
  void TraceOne(const SmtpOrder& order, MailTrace& trace) const;
  std::string Sender() const;
  void RefuseWrong(std::vector<RecipientOutcome>& outcomes, const SmtpOrder& order) const;
  bool Publish(std::vector<RecipientOutcome> outcomes);
  void Note(std::int32_t failure, const std::string& text);

  SendMailCls& owner_;
  std::shared_ptr<CallState> call_;
  const CancelMark mark_;
  const SMTPValues settings_;
  const ProxyValues proxy_;
  std::int32_t failure_ = 0;  // of the first recipient that failed
  std::string failureText_;
};

}  // namespace netro
