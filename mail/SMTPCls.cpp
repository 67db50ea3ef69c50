// SMTPCls: settings, results and the entry to a session, which mail/SmtpSession.h runs.
#include <netro/SMTPCls.h>

#include <new>
#include <utility>

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
  SmtpEvents events;
  events.line = [this, call](const std::string& line) {
    if (call->alive && events_ != nullptr) events_->DisplayProtocol(line);
  };
  events.data = [this, call](std::int32_t sent, std::int32_t total) {
    if (call->alive && events_ != nullptr) events_->DataStatus(sent, total);
  };
  events.watched = [this, call] { return call->alive && events_ != nullptr; };
  try {
    SmtpOrder order{Values(), Proxy(), From, RcptTo, DotRule::LoneDots};
    const bool done = RunSmtpSession(order, Data, CancelMark(module_, call_), result_, events);
    if (call->alive) KeepNames(order.settings);
    return done;
  } catch (const std::bad_alloc&) {  // before or after the session
    return false;
  }
}

// What the session has found out, unless an event has set something else meanwhile.
void SMTPCls::KeepNames(const SMTPValues& found) {
  if (SenderHostName().empty()) SenderHostName(found.senderHostName);
  if (ReceiverHostName().empty()) ReceiverHostName(found.receiverHostName);
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
