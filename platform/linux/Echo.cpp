#include "platform/Echo.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/linux/EchoLine.h"
#include "platform/linux/PortProbes.h"

namespace netro {
namespace {

constexpr std::size_t kMostInFlight = 65'536;  // of one object

}  // namespace

// --- the sockets of a loop -----------------------------------------------------------------------

struct EchoSockets::State {
  explicit State(Notifier& used) : notifier(used) {}

  std::int32_t Open(const IpAddress& ip, EchoLine*& opened);
  EchoLine* LineWithRoom();
  EchoLine* LineOf(std::int32_t number) const;
  PortProbes& Probes();
  std::int32_t NextNumber();
  void LetGo();

  Notifier& notifier;
  std::size_t users = 0;
  std::int32_t lastNumber = 0;
  std::vector<std::shared_ptr<EchoLine>> lines;
  std::unique_ptr<PortProbes> probes;
};

EchoSockets::EchoSockets(Notifier& notifier) : state_(std::make_unique<State>(notifier)) {}

EchoSockets::~EchoSockets() = default;

std::int32_t EchoSockets::State::Open(const IpAddress& ip, EchoLine*& opened) {
  opened = LineWithRoom();
  return opened->Open(ip.Family());
}

// Descriptors are scarcer than sequence numbers: a second line is made when the first is full.
EchoLine* EchoSockets::State::LineWithRoom() {
  for (const auto& line : lines)
    if (!line->IsFull()) return line.get();
  return lines.emplace_back(std::make_shared<EchoLine>(notifier)).get();
}

EchoLine* EchoSockets::State::LineOf(std::int32_t number) const {
  const auto found =
      std::ranges::find_if(lines, [&](const auto& line) { return line->Knows(number); });
  return found == lines.end() ? nullptr : found->get();
}

PortProbes& EchoSockets::State::Probes() {
  if (!probes) probes = std::make_unique<PortProbes>(notifier);
  return *probes;
}

std::int32_t EchoSockets::State::NextNumber() {
  constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
  lastNumber = lastNumber == kLast ? 1 : lastNumber + 1;
  return lastNumber;
}

void EchoSockets::State::LetGo() {
  if (--users > 0) return;
  for (const auto& line : lines) line->Close();
  lines.clear();
  probes.reset();
  lastNumber = 0;
}

// --- the requests of one object ------------------------------------------------------------------

Echo::Echo(EchoSockets& sockets, Answered answered)
    : sockets_(*sockets.state_), receiver_(std::make_shared<EchoReceiver>()) {
  receiver_->answered = std::move(answered);
}

Echo::~Echo() {
  receiver_->alive = false;
  if (!uses_) return;
  if (receiver_->inFlight > 0) {
    for (const auto& line : sockets_.lines) line->ForgetAll(*receiver_);
    if (sockets_.probes) sockets_.probes->ForgetAll(*receiver_);
  }
  sockets_.LetGo();
}

void Echo::Use() {
  if (!std::exchange(uses_, true)) ++sockets_.users;
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

std::int32_t Echo::Send(const EchoRequest& request, std::chrono::milliseconds /*wanted*/,
                        std::int32_t& number) {
  number = 0;
  if (IsFull()) return kIpNoResources;
  if (request.kind != ProbeKind::Echo) {
    number = sockets_.NextNumber();
    return sockets_.Probes().Send(request, receiver_, number);
  }
  EchoLine* line = nullptr;
  if (sockets_.Open(request.ip, line) != 0) return kIpNoResources;
  return line->Send(request, receiver_, sockets_.lastNumber, number);
}

bool Echo::LacksMemory(std::int32_t number) const {
  EchoLine* line = sockets_.LineOf(number);
  return line != nullptr && line->LacksMemory(number);
}

void Echo::Collect() {
  for (const auto& line : sockets_.lines) line->Collect();
}

bool Echo::HasAnswer(std::int32_t number) const {
  EchoLine* line = sockets_.LineOf(number);
  if (line != nullptr) return line->HasAnswer(number);
  return sockets_.probes && sockets_.probes->HasAnswer(number);
}

void Echo::Forget(std::int32_t number) {
  EchoLine* line = sockets_.LineOf(number);
  if (line != nullptr) return line->Forget(number);
  if (sockets_.probes) sockets_.probes->Forget(number);
}

}  // namespace netro
