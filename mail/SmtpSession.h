// One SMTP session: a step machine on the caller's stack. It works on copies of its settings and
// writes into a result that outlives the object it runs for; SMTPCls and SendMailCls both run it.
#pragma once

#include <netro/SMTPCls.h>

#include <functional>
#include <memory>
#include <string>

#include "mail/SmtpData.h"
#include "socket/Wait.h"

namespace netro {

struct SmtpResult {
  std::int32_t stepID = SMTP_STEP_NOERROR;
  std::int32_t result = 0;
  std::string resultMessage;
  std::string lastBuffer;
  std::string protocol;       // each line ended by CR LF
  std::int32_t dnsError = 0;  // of the exchanger lookup, a result of QueryDNSCLS
  std::int32_t accepted = 0;  // the last step whose reply let the session go on
  bool endUnknown = false;    // the whole message was sent, and no reply to it has come
};

/// Where a session's events go; a function may delete the object that the session runs for.
struct SmtpEvents {
  std::function<void(const std::string& line)> line;
  std::function<void(std::int32_t sent, std::int32_t total)> data;
  std::function<bool()> watched;  // whether somebody hears of them now
};

/// What measures the waits. LocalDay counts whole seconds of the local day with no correction at
/// midnight: a wait may end a second early, and one that passes midnight goes on for ten minutes
/// more than its time-out.
enum class WaitClock { LocalDay, Monotonic };

struct SmtpOrder {
  SMTPValues settings;
  ProxyValues proxy;
  std::string from;
  std::string rcptTo;
  DotRule dots = DotRule::LoneDots;
  WaitClock waits = WaitClock::LocalDay;
};

/// Runs a session under the caller's cancellation. True when it reached SMTP_STEP_DONE. The names
/// that it has found out (SenderHostName, ReceiverHostName) are left in `order.settings`. `data`
/// must stay as it is until the end.
bool RunSmtpSession(SmtpOrder& order, std::string_view data, const CancelMark& mark,
                    const std::shared_ptr<SmtpResult>& result, const SmtpEvents& events);

/// Only the lookup of the exchanger for the domain of `order.rcptTo`, with its transcript line.
bool RunExchangerLookup(SmtpOrder& order, const CancelMark& mark,
                        const std::shared_ptr<SmtpResult>& result);

}  // namespace netro
