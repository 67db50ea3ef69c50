// What goes into a mail session and what comes out of it. The result outlives the object that the
// session runs for. Thread: the session's.
#pragma once

#include <netro/SMTPCls.h>

#include <cstdint>
#include <functional>
#include <string>


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
  WaitClock waits = WaitClock::LocalDay;
  std::string fault;  // of the message, which nobody is to get then
};


}  // namespace netro
