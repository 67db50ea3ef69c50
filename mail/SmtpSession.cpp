// The step machine of a session.
//
//   Check → LookUp → Connect → Greeting → Helo → MailFrom → RcptTo → Data → Message → Quit → Done
//
// LookUp is for sessions without a server, Connect includes the SOCKS prolog; a simulation goes
// from RcptTo to Quit. Each state is one function, which returns the next state. A step sends one
// command, waits for the reply (SmtpReply) and goes on when the success table lists "step:code".
// The first failure closes the connection, records step, code and text, and ends the session
// without QUIT.
//
// A wait ends with a reply, with the connection, by its time-out or by the mark; a complete reply
// counts first. What a server sends without being asked belongs to the reply of the step that runs,
// and is forgotten with the next command.
//
// Every line of the transcript and every DataStatus calls out, and the object that the session runs
// for may be gone after it. The mark is cancelled then; so before a command is sent, and before
// the message is read on, the mark is asked. Results go to an SmtpResult that outlives the object.
#include "mail/SmtpSession.h"

#include <netro/Localization.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <new>
#include <utility>

#include "mail/MailAddress.h"
#include "mail/MailExchanger.h"
#include "mail/SmtpConnection.h"
#include "mail/SmtpData.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostInfo.h"
#include "socket/SocketErrors.h"
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {
namespace {

enum Text : std::int32_t {
  kInvalidAddress = 4007,
  kCanNotConnect = 7000,
  kTimeOutLine = 7001,
  kTimeOut = 7002,
  kSuccess = 7003,
  kLine = 7004,
  kSendingLine = 7005,
  kCancelledLine = 7007,
  kCancelled = 7008,
  kProxyDone = 9000,
};

constexpr std::size_t kChunk = 4096;
// As many chunks as loopback takes in one segment; for sessions whose progress nobody watches.
constexpr std::size_t kBlock = 15 * kChunk;
constexpr std::int32_t kNoLimit = std::numeric_limits<std::int32_t>::max();

// See WaitClock::LocalDay.
TimePoint DeadlineOfDay(std::int32_t timeOut, std::chrono::seconds zone) {
  constexpr long kPastMidnight = 600;
  using std::chrono::days;
  using std::chrono::floor;
  using std::chrono::seconds;
  const auto now = SystemTime() + zone;
  const auto end = floor<seconds>(now) + seconds(timeOut);
  if (end >= floor<days>(now) + days(1)) return SecondsFromNow(timeOut + kPastMidnight);
  return Now() + (end - now);
}

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

class SmtpSession {
 public:
  SmtpSession(SmtpOrder& order, std::string_view data, const CancelMark& mark,
              const std::shared_ptr<SmtpResult>& result, const SmtpEvents& events)
      : order_(order),
        settings_(order.settings),
        data_(data),
        mark_(mark),
        result_(result),
        events_(events),
        transcript_(settings_.protocolLevel, result, events),
        connection_(mark, result->lastBuffer,
                    [this](std::string_view bytes) { ShowReceived(bytes); }) {}

  bool Run() { return RunFrom(State::Check, State::Done); }
  bool RunLookup() { return RunFrom(State::LookUp, State::Connect); }

 private:
  enum class State {
    Check,
    LookUp,
    Connect,
    Greeting,
    Helo,
    MailFrom,
    RcptTo,
    Data,
    Message,
    Quit,
    Done,
    Failed,
  };

  bool RunFrom(State state, State last);
  State Step(State state);

  State Check();
  State LookUp();
  State Connect();
  State ConnectThroughProxy(ConnectionPlan plan);
  State Greeting() { return Await(SMTP_STEP_CONNECT, greetingDeadline_, State::Helo); }
  State Helo();
  State MailFrom();
  State RcptTo();
  State Data();
  State Message();
  State Quit();

  State Command(std::int32_t step, const std::string& command, State next);
  State Await(std::int32_t step, TimePoint deadline, State next);
  bool Accept(std::int32_t step);
  State Send(std::int32_t step, std::string_view bytes, State next);
  State SendBlocks(SmtpData& message, State next);
  bool IsWatched() const { return events_.watched && events_.watched(); }
  void TellProgress(std::size_t sent, std::size_t total);
  TimePoint Deadline(std::int32_t step) const {
    return SecondsOn(StepTimeOut(settings_.timeOuts, step));
  }
  TimePoint SecondsOn(std::int32_t timeOut) const {
    return order_.waits == WaitClock::Monotonic ? SecondsFromNow(timeOut)
                                                : DeadlineOfDay(timeOut, zone_);
  }

  void Show(const std::string& label, std::string_view text);
  void ShowReceived(std::string_view bytes);
  void ShowMessage(std::size_t size);

  State Fail(std::int32_t step, std::int32_t code, std::string message, std::string line = {});
  State FailWait(std::int32_t step, std::int32_t error);
  State FailSocket(std::int32_t error);
  State FailProxy(std::int32_t error);
  State Refuse();
  void Succeed(std::int32_t step);

  SmtpOrder& order_;
  SMTPValues& settings_;
  const std::string_view data_;
  const CancelMark& mark_;
  const std::shared_ptr<SmtpResult> result_;
  const SmtpEvents& events_;
  const std::chrono::seconds zone_ = LocalTimeOffset(SystemTime());
  SmtpTranscript transcript_;
  SmtpConnection connection_;
  std::string exchangerAddress_;  // that came with the record of the exchanger
  TimePoint greetingDeadline_;
};

bool SmtpSession::RunFrom(State state, State last) {
  while (state != last && state != State::Failed) state = Step(state);
  return state == last;
}

SmtpSession::State SmtpSession::Step(State state) {
  switch (state) {
    case State::Check:
      return Check();
    case State::LookUp:
      return LookUp();
    case State::Connect:
      return Connect();
    case State::Greeting:
      return Greeting();
    case State::Helo:
      return Helo();
    case State::MailFrom:
      return MailFrom();
    case State::RcptTo:
      return RcptTo();
    case State::Data:
      return Data();
    case State::Message:
      return Message();
    case State::Quit:
      return Quit();
    case State::Done:
    case State::Failed:
      break;
  }
  return State::Failed;
}

SmtpSession::State SmtpSession::Check() {
  std::string& sender = settings_.senderHostName;
  if (sender.empty()) sender = ReadHostName();
  if (sender.empty()) sender = "localhost";
  const struct {
    const std::string& value;
    std::string_view forbidden;
  } checks[] = {{order_.from, "<>"}, {order_.rcptTo, "<>"}, {sender, " \t<>"}};
  for (const auto& [value, forbidden] : checks) {
    if (!BreaksCommand(value, forbidden)) continue;
    const std::string text = GetMessageText(kInvalidAddress, {Printable(value)});
    result_->lastBuffer = text;
    return Fail(SMTP_STEP_PRECHECK, SMTP_INITERROR, text, text);
  }
  return State::LookUp;
}

SmtpSession::State SmtpSession::LookUp() {
  if (!settings_.receiverHostName.empty()) return State::Connect;
  std::string lines;
  const auto show = [&](const std::string& line) {
    lines += (lines.empty() ? "" : "\r\n") + line;
    transcript_.Add(line);
  };
  const std::string domain = ExtractAddress(order_.rcptTo).host;
  const MailExchanger found = FindMailExchanger(settings_, domain, mark_, show);
  result_->dnsError = mark_.Cancelled() ? kErrCancelled : found.dnsError;
  if (mark_.Cancelled()) return FailWait(SMTP_STEP_AUTODNS, kErrCancelled);
  if (found.name.empty() && mark_.Expired()) return FailWait(SMTP_STEP_AUTODNS, kErrTimedOut);
  if (found.name.empty()) {
    result_->lastBuffer = lines;
    return Fail(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, lines);
  }
  settings_.receiverHostName = found.name;
  if (found.isGlue) exchangerAddress_ = found.address;
  result_->lastBuffer = GatewayText(found.name, found.address);
  Succeed(SMTP_STEP_AUTODNS);
  return State::Connect;
}

SmtpSession::State SmtpSession::Connect() {
  ConnectionPlan plan;
  plan.host = settings_.receiverHostName;
  plan.port = settings_.port;
  if (!PlanProxy(order_.proxy, plan) || HasControl(plan.host)) return Refuse();
  const bool namesForProxy = plan.socks != SocksKind::None && plan.remoteDNS;
  if (!exchangerAddress_.empty() && !namesForProxy) plan.host = exchangerAddress_;
  plan.lookup = {NameServers(settings_), settings_.preference};
  result_->lastBuffer.clear();
  if (plan.socks != SocksKind::None) return ConnectThroughProxy(std::move(plan));

  greetingDeadline_ = Deadline(SMTP_STEP_CONNECT);
  plan.seconds = kNoLimit;
  plan.limit = greetingDeadline_;
  const std::int32_t error = connection_.Open(plan);
  if (error == 0) return State::Greeting;
  if (connection_.Failure() != 0) return FailSocket(error);
  return IsWaitError(error) ? FailWait(SMTP_STEP_CONNECT, error) : Refuse();
}

SmtpSession::State SmtpSession::ConnectThroughProxy(ConnectionPlan plan) {
  plan.seconds = settings_.proxyTimeout;
  plan.limit = SecondsOn(settings_.proxyTimeout);
  std::int32_t error = connection_.Open(plan);
  if (error != 0 && connection_.Failure() != 0) return FailSocket(error);
  if (error != 0 && !IsWaitError(error)) return Refuse();
  if (error == 0) error = connection_.OpenTunnel(plan);
  if (error != 0) return FailProxy(error);
  transcript_.Add(GetMessageText(kProxyDone, {plan.proxyHost, std::to_string(plan.proxyPort)}));
  greetingDeadline_ = Deadline(SMTP_STEP_CONNECT);
  return State::Greeting;
}

SmtpSession::State SmtpSession::Helo() {
  return Command(SMTP_STEP_HELO, "HELO " + settings_.senderHostName, State::MailFrom);
}

SmtpSession::State SmtpSession::MailFrom() {
  const std::string from = order_.from.empty() ? "admin@" + settings_.senderHostName : order_.from;
  return Command(SMTP_STEP_MAILFROM, "MAIL FROM:<" + from + '>', State::RcptTo);
}

SmtpSession::State SmtpSession::RcptTo() {
  return Command(SMTP_STEP_RCPTTO, "RCPT TO:<" + order_.rcptTo + '>',
                 settings_.simulation ? State::Quit : State::Data);
}

SmtpSession::State SmtpSession::Data() { return Command(SMTP_STEP_DATA, "DATA", State::Message); }

SmtpSession::State SmtpSession::Quit() {
  const State next = Command(SMTP_STEP_QUIT, "QUIT", State::Done);
  if (next != State::Done) return next;
  connection_.Close();
  Succeed(SMTP_STEP_DONE);
  return next;
}

// It is shown before it is sent: the reply may arrive while it is being sent.
SmtpSession::State SmtpSession::Command(std::int32_t step, const std::string& command, State next) {
  connection_.BeginReply();
  Show(settings_.senderHostName, command);
  const State sent = Send(step, command + "\r\n", next);
  return sent == State::Failed ? sent : Await(step, Deadline(step), next);
}

// What the server has taken is delivered, also when the event that shows its reply throws.
SmtpSession::State SmtpSession::Message() {
  connection_.BeginReply();
  const OnException accept([this] { Accept(SMTP_STEP_SENDDATA); });
  if (mark_.Cancelled()) return FailWait(SMTP_STEP_SENDDATA, kErrCancelled);
  SmtpData message(data_, order_.dots);
  ShowMessage(message.Size());
  const State sent = SendBlocks(message, State::Quit);
  if (sent == State::Failed) return sent;
  return Await(SMTP_STEP_SENDDATA, Deadline(SMTP_STEP_SENDDATA), State::Quit);
}

// A server that is gone gets no more; its reply may be there already.
SmtpSession::State SmtpSession::SendBlocks(SmtpData& message, State next) {
  std::size_t sent = 0;
  while (sent < message.Size() && connection_.Failure() == 0) {
    if (mark_.Cancelled()) return FailWait(SMTP_STEP_SENDDATA, kErrCancelled);
    const std::string_view block = message.Next(IsWatched() ? kChunk : kBlock);
    // Who cancels does not learn how much of the block went.
    const bool isLast = sent + block.size() == message.Size();
    if (isLast) result_->endUnknown = true;
    if (Send(SMTP_STEP_SENDDATA, block, next) != next) return State::Failed;
    if (connection_.IsReset()) {
      result_->endUnknown = false;
      break;
    }
    sent += block.size();
    TellProgress(sent, message.Size());
  }
  return next;
}

void SmtpSession::TellProgress(std::size_t sent, std::size_t total) {
  if (!events_.data || mark_.Cancelled()) return;
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  events_.data(static_cast<std::int32_t>(std::min(sent, kMost)),
               static_cast<std::int32_t>(std::min(total, kMost)));
}

SmtpSession::State SmtpSession::Send(std::int32_t step, std::string_view bytes, State next) {
  const std::int32_t error = connection_.Send(bytes);
  if (error == 0) return next;
  if (error != kErrCancelled) result_->endUnknown = false;
  return IsWaitError(error) ? FailWait(step, error) : FailSocket(error);
}

SmtpSession::State SmtpSession::Await(std::int32_t step, TimePoint deadline, State next) {
  const WaitEnd end = connection_.AwaitReply(deadline);
  if (const std::int32_t code = connection_.Code()) {
    return Accept(step) ? next : Fail(step, code, result_->lastBuffer);
  }
  if (const std::int32_t error = connection_.Failure()) return FailSocket(error);
  return FailWait(step, WaitError(end));
}

bool SmtpSession::Accept(std::int32_t step) {
  const std::int32_t code = connection_.Code();
  const bool good = code != 0 && HasStepEntry(settings_.success, step, code);
  if (good) result_->accepted = step;
  if (code != 0) result_->endUnknown = false;
  return good;
}

void SmtpSession::Show(const std::string& label, std::string_view text) {
  if (!transcript_.IsOff()) transcript_.Add(GetMessageText(kLine, {label, std::string(text)}));
}

void SmtpSession::ShowReceived(std::string_view bytes) {
  const std::string_view text = WithoutLineEnd(bytes);
  if (!text.empty()) Show(settings_.receiverHostName, text);
}

void SmtpSession::ShowMessage(std::size_t size) {
  if (transcript_.HasWholeMessage()) {
    SmtpData message(data_, order_.dots);
    Show(settings_.senderHostName, WithoutLineEnd(message.Next(size)));
  } else if (!transcript_.IsOff()) {
    transcript_.Add(GetMessageText(kSendingLine, {settings_.senderHostName, std::to_string(size)}));
  }
}

void SmtpSession::Succeed(std::int32_t step) {
  result_->stepID = step;
  result_->result = 0;
  result_->resultMessage = GetMessageText(kSuccess);
}

SmtpSession::State SmtpSession::Fail(std::int32_t step, std::int32_t code, std::string message,
                                     std::string line) {
  connection_.Close();
  result_->stepID = step;
  result_->result = code;
  result_->resultMessage = std::move(message);
  transcript_.Add(std::move(line));
  transcript_.Release();
  return State::Failed;
}

SmtpSession::State SmtpSession::FailWait(std::int32_t step, std::int32_t error) {
  const std::string name = StepName(step);
  const std::string& server = settings_.receiverHostName;
  if (error == kErrTimedOut) {
    return Fail(step, SMTP_TIMEOUT, GetMessageText(kTimeOut, {std::to_string(SMTP_TIMEOUT), name}),
                GetMessageText(kTimeOutLine, {server, name}));
  }
  return Fail(step, SMTP_CANCELED, GetMessageText(kCancelled, {name}),
              GetMessageText(kCancelledLine, {server, name}));
}

SmtpSession::State SmtpSession::FailSocket(std::int32_t error) {
  const std::string text = SocketErrorText(error);
  result_->lastBuffer = text;
  return Fail(SMTP_STEP_SOCKETERROR, error, text,
              GetMessageText(kLine, {settings_.senderHostName, text}));
}

SmtpSession::State SmtpSession::FailProxy(std::int32_t error) {
  const bool timedOut = error == kErrTimedOut;
  transcript_.Add(GetMessageText(timedOut ? kErrTimedOut : kErrCancelled));
  const bool refused = error >= kErrSocksRefused && error <= kErrSocksMethod;
  const ProxyValues& proxy = order_.proxy;
  const std::string text = refused ? GetMessageText(error, {proxy.url, std::to_string(proxy.port)})
                                   : SocketErrorText(error);
  result_->lastBuffer = text;
  if (error == kErrCancelled) return FailWait(SMTP_STEP_SOCKS, error);
  return Fail(SMTP_STEP_SOCKS, error, text);
}

// The connection could not even be begun. The name in the text is the sender's.
SmtpSession::State SmtpSession::Refuse() {
  const std::string text = GetMessageText(kCanNotConnect, {settings_.senderHostName});
  result_->lastBuffer = text;
  return Fail(SMTP_STEP_INITSOCKET, SMTP_INITERROR, text, text);
}

// A session under the given result, which tells when memory ran out.
template <class Call>
bool RunWith(const std::shared_ptr<SmtpResult>& result, Call call) {
  *result = SmtpResult();
  try {
    return call();
  } catch (const std::bad_alloc&) {
    result->stepID = SMTP_STEP_SOCKETERROR;
    result->result = kErrNoBuffers;
    result->resultMessage = SocketErrorText(kErrNoBuffers);
    return false;
  }
}

}  // namespace

bool RunSmtpSession(SmtpOrder& order, std::string_view data, const CancelMark& mark,
                    const std::shared_ptr<SmtpResult>& result, const SmtpEvents& events) {
  return RunWith(result, [&] { return SmtpSession(order, data, mark, result, events).Run(); });
}

bool RunExchangerLookup(SmtpOrder& order, const CancelMark& mark,
                        const std::shared_ptr<SmtpResult>& result) {
  order.settings.protocolLevel = pl_standard;
  return RunWith(result,
                 [&] { return SmtpSession(order, {}, mark, result, SmtpEvents()).RunLookup(); });
}

}  // namespace netro
