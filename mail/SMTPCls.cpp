// SMTPCls: settings, results and the entry to a session, which mail/SmtpSession.h runs.
#include <netro/SMTPCls.h>

#include <new>
#include <utility>

#include "mail/LineEnds.h"
#include "mail/SmtpSession.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "platform/CallState.h"
#include "socket/SocketModule.h"

namespace netro {

SMTPCls::SMTPCls()
    : module_(SocketModule::ForThread()),
      call_(std::make_shared<CallState>()),
      result_(std::make_shared<SmtpResult>()) {}

SMTPCls::~SMTPCls() { call_->Die(); }

bool SMTPCls::SMTP(const std::string& From, const std::string& RcptTo, const std::string& Data) {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  try {
    SmtpOrder order{Values(), Proxy(), From, RcptTo, WaitClock::LocalDay, {}};
    if (StrictLines()) order.fault = BareLineEnd(Data);
    SmtpData data(Data, DotRule::LoneDots);
    const CancelMark mark(module_, call_);
    const bool done = RunSmtpSession(order, data, mark, result_, OwnEvents());
    if (call->alive) KeepNames(order.settings);
    return done;
  } catch (const std::bad_alloc&) {  // before the session, which tells of its own
    if (call->alive) NoteNoMemory(*result_);
    return false;
  }
}

SmtpEvents SMTPCls::OwnEvents() {
  SmtpEvents events;
  events.line = [this, call = call_](const std::string& line) {
    if (call->alive && events_ != nullptr) events_->DisplayProtocol(line);
  };
  events.data = [this, call = call_](std::int32_t sent, std::int32_t total) {
    if (call->alive && events_ != nullptr) events_->DataStatus(sent, total);
  };
  events.watched = [this, call = call_] { return call->alive && events_ != nullptr; };
  return events;
}

// What the session has found out, unless an event has set something else meanwhile. Without memory
// for it, the next session finds it out again.
void SMTPCls::KeepNames(const SMTPValues& found) try {
  if (SenderHostName().empty()) SenderHostName(found.senderHostName);
  if (ReceiverHostName().empty()) ReceiverHostName(found.receiverHostName);
} catch (const std::bad_alloc&) {
}

const std::string& SMTPCls::LastBuffer() const { return result_->lastBuffer; }
void SMTPCls::LastBuffer(std::string value) { result_->lastBuffer = std::move(value); }

std::string SMTPCls::Protocol() const { return std::string(WithoutLineEnd(result_->protocol)); }

std::int32_t SMTPCls::StepID() const { return result_->stepID; }
std::int32_t SMTPCls::Result() const { return result_->result; }
const std::string& SMTPCls::ResultMessage() const { return result_->resultMessage; }

std::string SMTPCls::GetSMTPStepName(std::int32_t SMTPStepID) const { return StepName(SMTPStepID); }

std::string SMTPCls::GetGateWayNameFromProtocol(const std::string& Protocol) const {
  return FindGateway(Protocol).name;
}

std::string SMTPCls::GetGatewayIPFromProtocol(const std::string& Protocol) const {
  return FindGateway(Protocol).address;
}

void SMTPCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void SMTPCls::Kill() { StopWaiting(); }

}  // namespace netro
