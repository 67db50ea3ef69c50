#include "platform/Echo.h"

#include <limits>
#include <utility>

#include "platform/windows/EchoCalls.h"
#include "platform/windows/PortProbes.h"

namespace netro {
namespace {

constexpr std::size_t kMostInFlight = 65'536;  // of one object

}  // namespace

struct EchoSockets::State {
  explicit State(Notifier& used) : notifier(used) {}

  EchoCalls& Calls() {
    if (!calls) calls = std::make_shared<EchoCalls>(notifier);
    return *calls;
  }
  PortProbes& Probes() {
    if (!probes) probes = std::make_unique<PortProbes>(notifier);
    return *probes;
  }
  std::int32_t NextNumber() {
    constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
    do {
      lastNumber = lastNumber == kLast ? 1 : lastNumber + 1;
    } while (Calls().Knows(lastNumber));
    return lastNumber;
  }
  void LetGo() {
    if (--users > 0) return;
    if (calls) calls->Close();
    calls.reset();
    probes.reset();
    lastNumber = 0;
  }

  Notifier& notifier;
  std::size_t users = 0;
  std::int32_t lastNumber = 0;
  std::shared_ptr<EchoCalls> calls;
  std::unique_ptr<PortProbes> probes;
};

EchoSockets::EchoSockets(Notifier& notifier) : state_(std::make_unique<State>(notifier)) {}

EchoSockets::~EchoSockets() = default;

Echo::Echo(EchoSockets& sockets, Answered answered)
    : sockets_(*sockets.state_), receiver_(std::make_shared<EchoReceiver>()) {
  receiver_->answered = std::move(answered);
}

Echo::~Echo() {
  receiver_->alive = false;
  if (!uses_) return;
  if (receiver_->inFlight > 0) {
    if (sockets_.calls) sockets_.calls->ForgetAll(*receiver_);
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
  const std::int32_t error = sockets_.Calls().Open(request.ip.Family());
  if (error == 0) kind_ = EchoSocket::Datagram;  // it takes no permission
  return error;
}

bool Echo::IsFull() const { return receiver_->inFlight >= kMostInFlight; }

std::int32_t Echo::Send(const EchoRequest& request, std::chrono::milliseconds wanted,
                        std::int32_t& number) {
  number = 0;
  if (IsFull()) return kIpNoResources;
  if (request.kind == ProbeKind::Echo && sockets_.Calls().Open(request.ip.Family()) != 0) {
    return kIpNoResources;
  }
  number = sockets_.NextNumber();
  if (request.kind != ProbeKind::Echo) return sockets_.Probes().Send(request, receiver_, number);
  return sockets_.Calls().Send(request, wanted, receiver_, number);
}

bool Echo::LacksMemory(std::int32_t /*number*/) const { return false; }

void Echo::Collect() {
  if (sockets_.calls) sockets_.calls->Collect();
}

bool Echo::HasAnswer(std::int32_t number) const {
  return sockets_.calls && sockets_.calls->HasAnswer(number);
}

void Echo::Forget(std::int32_t number) {
  if (sockets_.calls) sockets_.calls->Forget(number);
  if (sockets_.probes) sockets_.probes->Forget(number);
}

}  // namespace netro
