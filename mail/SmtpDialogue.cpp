#include "mail/SmtpDialogue.h"

#include <netro/Localization.h>

#include <algorithm>
#include <utility>

#include "mail/SmtpTables.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"

namespace netro {
namespace {

enum Text : std::int32_t {
  kTimeOutLine = 7001,
  kTimeOut = 7002,
  kSuccess = 7003,
  kLine = 7004,
  kCancelledLine = 7007,
  kCancelled = 7008,
};

constexpr std::int32_t kWillForward = 251;

// See WaitClock::LocalDay.
TimePoint DeadlineOfDay(std::chrono::milliseconds timeOut, std::chrono::seconds zone) {
  constexpr std::chrono::minutes kPastMidnight(10);
  using std::chrono::days;
  using std::chrono::floor;
  using std::chrono::seconds;
  const auto now = SystemTime() + zone;
  const auto end = floor<seconds>(now) + timeOut;
  if (end >= floor<days>(now) + days(1)) return MillisecondsFromNow(timeOut + kPastMidnight);
  return Now() + (end - now);
}

TimePoint LimitOf(const SMTPValues& settings) {
  return settings.totalTimeout.count() > 0 ? MillisecondsFromNow(settings.totalTimeout)
                                           : TimePoint::max();
}

}  // namespace

std::string Printable(std::string text) {
  for (char& c : text) {
    if (HasControl({&c, 1})) c = '?';
  }
  return text;
}

bool BreaksCommand(std::string_view text, std::string_view forbidden) {
  return HasControl(text) || text.find_first_of(forbidden) != text.npos;
}

bool IsWaitError(std::int32_t error) { return error == kErrTimedOut || error == kErrCancelled; }

SmtpDialogue::SmtpDialogue(SMTPValues values, WaitClock waits, std::shared_ptr<SmtpResult> into,
                           SmtpEvents sink)
    : settings(std::move(values)),
      result(std::move(into)),
      events(std::move(sink)),
      transcript(settings.protocolLevel, result, events),
      connection(result->lastBuffer, [this](std::string_view bytes) { ShowReceived(bytes); }),
      waits_(waits),
      zone_(LocalTimeOffset(SystemTime())),
      limit_(LimitOf(settings)) {}

void SmtpDialogue::Use(const CancelMark* mark) {
  mark_ = mark;
  if (mark != nullptr) connection.Use(*mark);
}

void SmtpDialogue::Restart(const SMTPValues& values) {
  const std::string sender = std::move(settings.senderHostName);
  const std::string receiver = std::move(settings.receiverHostName);
  settings = values;
  settings.senderHostName = sender;
  settings.receiverHostName = receiver;
  limit_ = LimitOf(settings);
  const std::int32_t accepted = result->accepted;
  *result = SmtpResult();
  result->accepted = accepted;
  transcript.Restart(settings.protocolLevel);
}

bool SmtpDialogue::Command(std::int32_t step, const std::string& command) {
  const std::int32_t code = Ask(step, command);
  return code != 0 && (Accept(step, code) || FailReply(step, code));
}

std::int32_t SmtpDialogue::Ask(std::int32_t step, const std::string& command) {
  return Ask(step, command, command);
}

// It is shown before it is sent: the reply may arrive while it is being sent.
std::int32_t SmtpDialogue::Ask(std::int32_t step, const std::string& command,
                               const std::string& shown) {
  connection.BeginReply();
  ShowCommand(shown);
  return Send(step, command + "\r\n") ? AwaitCode(step, Deadline(step)) : 0;
}

bool SmtpDialogue::Send(std::int32_t step, std::string_view bytes) {
  const std::int32_t error = connection.Send(bytes, limit_);
  if (error == 0) return true;
  if (error != kErrCancelled) result->endUnknown = false;
  return IsWaitError(error) ? FailWait(step, error) : FailSocket(error);
}

std::int32_t SmtpDialogue::AwaitCode(std::int32_t step, TimePoint deadline) {
  const WaitEnd end = connection.AwaitReply(deadline);
  if (const std::int32_t code = connection.Code()) return code;
  if (connection.IsForeign()) {
    const std::string& came = result->lastBuffer;
    FailText(step, kErrProtocolNotSupported,
             "The server does not speak SMTP: " + came.substr(0, came.find_first_of("\r\n")));
  } else if (const std::int32_t error = connection.Failure()) {
    FailSocket(error);
  } else {
    FailWait(step, WaitError(end));
  }
  return 0;
}

bool SmtpDialogue::Await(std::int32_t step, TimePoint deadline) {
  const std::int32_t code = AwaitCode(step, deadline);
  return code != 0 && (Accept(step, code) || FailReply(step, code));
}

// What a server has taken it delivers: who took that for a refusal would send it again. A recipient
// that is answered with 251 gets the message with the others (RFC 5321, section 4.3.2), and a
// message that is answered with any 2yz has arrived (section 4.2.1). SMTPCls and the address check
// go by the table alone.
bool SmtpDialogue::Accept(std::int32_t step, std::int32_t code) {
  const bool delivers = waits_ == WaitClock::Monotonic && !settings.simulation;
  const bool taken = delivers && ((step == SMTP_STEP_RCPTTO && code == kWillForward) ||
                                  (step == SMTP_STEP_SENDDATA && code / 100 == 2));
  const bool good = code != 0 && (taken || HasStepEntry(settings.success, step, code));
  if (good) result->accepted = step;
  if (good || IsDecision(code)) result->endUnknown = false;
  return good;
}

TimePoint SmtpDialogue::Deadline(std::int32_t step) const {
  return TimeOn(StepTimeOut(settings.timeOuts, step));
}

TimePoint SmtpDialogue::TimeOn(std::chrono::milliseconds timeOut) const {
  const bool isMonotonic = waits_ == WaitClock::Monotonic;
  return std::min(limit_,
                  isMonotonic ? MillisecondsFromNow(timeOut) : DeadlineOfDay(timeOut, zone_));
}

void SmtpDialogue::Show(const std::string& label, std::string_view text) {
  if (!transcript.IsOff()) transcript.Add(GetMessageText(kLine, {label, std::string(text)}));
}

void SmtpDialogue::Hide(std::string& text) const {
  constexpr std::string_view kHidden = "***";
  for (const std::string& secret : secrets) {
    for (auto at = text.find(secret); at != text.npos;
         at = text.find(secret, at + kHidden.size())) {
      text.replace(at, secret.size(), kHidden);
    }
  }
}

void SmtpDialogue::ShowReceived(std::string_view bytes) {
  const std::string_view text = WithoutLineEnd(bytes);
  if (mark_ != nullptr && repliesAreShown && !text.empty()) Show(settings.receiverHostName, text);
}

void SmtpDialogue::Succeed(std::int32_t step) {
  result->stepID = step;
  result->result = 0;
  result->resultMessage = GetMessageText(kSuccess);
}

bool SmtpDialogue::Fail(std::int32_t step, std::int32_t code, std::string message,
                        std::string line) {
  connection.Close();
  for (std::string* text : {&message, &line, &result->lastBuffer}) Hide(*text);
  result->stepID = step;
  result->result = code;
  result->resultMessage = std::move(message);
  transcript.Add(std::move(line));
  transcript.Release();
  return false;
}

bool SmtpDialogue::FailReply(std::int32_t step, std::int32_t code) {
  return Fail(step, code, result->lastBuffer);
}

bool SmtpDialogue::FailText(std::int32_t step, std::int32_t code, const std::string& text) {
  result->lastBuffer = text;
  return Fail(step, code, text, GetMessageText(kLine, {settings.senderHostName, text}));
}

bool SmtpDialogue::FailWait(std::int32_t step, std::int32_t error) {
  const std::string name = StepName(step);
  const std::string& server = settings.receiverHostName;
  if (error == kErrTimedOut) {
    return Fail(step, SMTP_TIMEOUT, GetMessageText(kTimeOut, {std::to_string(SMTP_TIMEOUT), name}),
                GetMessageText(kTimeOutLine, {server, name}));
  }
  return Fail(step, SMTP_CANCELED, GetMessageText(kCancelled, {name}),
              GetMessageText(kCancelledLine, {server, name}));
}

bool SmtpDialogue::FailSocket(std::int32_t error) {
  return FailText(SMTP_STEP_SOCKETERROR, error, SocketErrorText(error));
}

}  // namespace netro
