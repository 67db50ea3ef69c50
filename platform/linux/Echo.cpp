#include "platform/Echo.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/EchoLine.h"
#include "platform/linux/PortProbes.h"

namespace netro {
namespace {

constexpr std::size_t kMostInFlight = 65'536;  // of one object

}  // namespace

std::int32_t EchoSendStatus(std::int32_t error) {
  switch (error) {
    case 0:
      return kIpSuccess;
    case 10040:  // message too long
      return kIpTooBig;
    case 10050:  // network down, network unreachable
    case 10051:
      return kIpNoNetwork;
    case 10064:  // host down, no route to host
    case 10065:
      return kIpNoHost;
    case 10024:  // no descriptor left
    case 10055:  // no buffers
      return kIpNoResources;
    default:
      return kIpGeneralFailure;
  }
}

// --- the sockets of a loop -----------------------------------------------------------------------

EchoSockets::EchoSockets(Notifier& notifier) : notifier_(notifier) {}

EchoSockets::~EchoSockets() = default;

std::int32_t EchoSockets::Open(const IpAddress& ip, EchoLine*& opened) {
  opened = LineWithRoom();
  return opened->Open(ip.Family());
}

// Descriptors are scarcer than sequence numbers: a second line is made when the first is full.
EchoLine* EchoSockets::LineWithRoom() {
  for (const auto& line : lines_)
    if (!line->IsFull()) return line.get();
  return lines_.emplace_back(std::make_shared<EchoLine>(notifier_)).get();
}

EchoLine* EchoSockets::LineOf(std::int32_t number) const {
  const auto found =
      std::ranges::find_if(lines_, [&](const auto& line) { return line->Knows(number); });
  return found == lines_.end() ? nullptr : found->get();
}

PortProbes& EchoSockets::Probes() {
  if (!probes_) probes_ = std::make_unique<PortProbes>(notifier_);
  return *probes_;
}

std::int32_t EchoSockets::NextNumber() {
  constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
  lastNumber_ = lastNumber_ == kLast ? 1 : lastNumber_ + 1;
  return lastNumber_;
}

void EchoSockets::LetGo() {
  if (--users_ > 0) return;
  for (const auto& line : lines_) line->Close();
  lines_.clear();
  probes_.reset();
  lastNumber_ = 0;
}

// --- the requests of one object ------------------------------------------------------------------

Echo::Echo(EchoSockets& sockets, Answered answered)
    : sockets_(sockets), receiver_(std::make_shared<EchoReceiver>()) {
  receiver_->answered = std::move(answered);
}

Echo::~Echo() {
  receiver_->alive = false;
  if (!uses_) return;
  if (receiver_->inFlight > 0) {
    for (const auto& line : sockets_.lines_) line->ForgetAll(*receiver_);
    if (sockets_.probes_) sockets_.probes_->ForgetAll(*receiver_);
  }
  sockets_.LetGo();
}

void Echo::Use() {
  if (!std::exchange(uses_, true)) ++sockets_.users_;
}

std::int32_t Echo::Open(const EchoRequest& request) {
  Use();
  if (request.kind != ProbeKind::Echo) return 0;
  EchoLine* line = nullptr;
  const std::int32_t error = sockets_.Open(request.ip, line);
  if (error == 0) kind_ = line->KindOf(request.ip.Family());
  return error;
}

bool Echo::IsFull() const { return receiver_->inFlight >= kMostInFlight; }

std::int32_t Echo::Send(const EchoRequest& request, std::int32_t& number) {
  number = 0;
  if (IsFull()) return kIpNoResources;
  if (request.kind != ProbeKind::Echo) {
    number = sockets_.NextNumber();
    return sockets_.Probes().Send(request, receiver_, number);
  }
  EchoLine* line = nullptr;
  if (sockets_.Open(request.ip, line) != 0) return kIpNoResources;
  return line->Send(request, receiver_, sockets_.lastNumber_, number);
}

bool Echo::LacksMemory(std::int32_t number) const {
  EchoLine* line = sockets_.LineOf(number);
  return line != nullptr && line->LacksMemory(number);
}

void Echo::Collect() {
  for (const auto& line : sockets_.lines_) line->Collect();
}

bool Echo::HasAnswer(std::int32_t number) const {
  EchoLine* line = sockets_.LineOf(number);
  if (line != nullptr) return line->HasAnswer(number);
  return sockets_.probes_ && sockets_.probes_->HasAnswer(number);
}

void Echo::Forget(std::int32_t number) {
  EchoLine* line = sockets_.LineOf(number);
  if (line != nullptr) return line->Forget(number);
  if (sockets_.probes_) sockets_.probes_->Forget(number);
}

}  // namespace netro
