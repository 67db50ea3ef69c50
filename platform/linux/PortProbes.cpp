// With IP_RECVERR the system puts the ICMP errors about a datagram, and since Linux 6.3 those about
// a connection that is being opened, into the socket's error queue. Older systems tell of the
// latter only that there was one: the hop is then unknown.
#include "platform/linux/PortProbes.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

constexpr std::size_t kRoom = 2'048;  // of what an error quotes, and what is appended to it
constexpr std::size_t kLargestDatagram = 65'507;
constexpr std::uint8_t kFiller = '@';

bool Had(int handle, short events) {
  pollfd asked{handle, events, 0};
  return poll(&asked, 1, 0) > 0;
}

std::int32_t PendingError(int handle) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(handle, SOL_SOCKET, SO_ERROR, &error, &size);
  return error == 0 ? 0 : SocketErrorNumber(error);
}

bool WasRepeated(int handle) {
  tcp_info info{};
  socklen_t size = sizeof info;
  return getsockopt(handle, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
         info.tcpi_total_retrans > 0;
}

std::int32_t SetHops(int handle, AddressFamily family, int hops) {
  const bool v6 = family == AddressFamily::IPv6;
  if (hops == 0) return 0;
  if (setsockopt(handle, v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? IPV6_UNICAST_HOPS : IP_TTL, &hops,
                 sizeof hops) == 0) {
    return 0;
  }
  return SocketErrorNumber(errno);
}

}  // namespace

class PortProbes::Probe final : private SocketWatcher {
 public:
  Probe(PortProbes& owner, const EchoRequest& request, std::shared_ptr<EchoReceiver> receiver,
        std::int32_t number)
      : request_(request), receiver_(std::move(receiver)), number_(number), owner_(owner) {
    ++receiver_->inFlight;
  }
  ~Probe() {
    --receiver_->inFlight;
    if (handle_ == 0) return;
    owner_.notifier_.Unwatch(handle_);
    CloseSocket(handle_);
  }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  const EchoRequest& Request() const { return request_; }
  const std::shared_ptr<EchoReceiver>& Receiver() const { return receiver_; }
  std::int32_t Number() const { return number_; }
  std::int32_t Handle() const { return handle_; }
  bool IsTcp() const { return request_.kind == ProbeKind::Tcp; }

  /// Returns the error number.
  std::int32_t Send() {
    const SocketKind kind = IsTcp() ? SocketKind::Stream : SocketKind::Datagram;
    const AddressFamily family = request_.ip.Family();
    if (request_.ip.IsLinkLocal() && request_.ip.Scope() == 0) return kErrInvalidArgument;
    if (const std::int32_t error = CreateSocket(kind, family, handle_)) return error;
    Notifier& notifier = owner_.notifier_;
    if (const std::int32_t error = notifier.Watch(handle_, kind, *this)) return error;
    if (receiver_->awaited) notifier.SetAwaited(handle_);
    MessageBatch::Prepare(handle_, family, true);
    if (const std::int32_t error = SetHops(handle_, family, request_.ttl)) return error;
    return IsTcp() ? Connect() : SendDatagram();
  }

  const SendTime& Sent() const { return sent_; }

 private:
  void OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t error) override {
    owner_.Look(*this, event, error);
  }

  std::int32_t Connect() {
    sent_ = SendTime::Now();
    owner_.notifier_.Connect(handle_, {request_.ip, request_.port});
    return 0;  // the outcome is told later, whatever it is
  }

  std::int32_t SendDatagram() {
    const auto size = static_cast<std::size_t>(std::max(request_.size, 0));
    if (size > kLargestDatagram) return kErrMessageTooLong;
    if (const std::int32_t error = SetPeer(handle_, {request_.ip, request_.port})) return error;
    const Bytes data(size, kFiller);
    std::int32_t error = 0;
    sent_ = SendTime::Now();
    return owner_.notifier_.Send(handle_, data, error) < 0 ? error : 0;
  }

  const EchoRequest request_;
  const std::shared_ptr<EchoReceiver> receiver_;
  const std::int32_t number_;
  PortProbes& owner_;
  std::int32_t handle_ = 0;
  SendTime sent_;
};

PortProbes::PortProbes(Notifier& notifier) : notifier_(notifier) { batch_.Reserve(kRoom); }

PortProbes::~PortProbes() = default;

std::int32_t PortProbes::Send(const EchoRequest& request,
                              const std::shared_ptr<EchoReceiver>& receiver, std::int32_t number) {
  auto probe = std::make_unique<Probe>(*this, request, receiver, number);
  const std::int32_t error = probe->Send();
  if (error == kErrWouldBlock) return kIpNoResources;
  if (error == 0) probes_[number] = std::move(probe);
  return EchoSendStatus(error);
}

bool PortProbes::HasAnswer(std::int32_t number) const {
  const auto found = probes_.find(number);
  if (found == probes_.end()) return false;
  return Had(found->second->Handle(), found->second->IsTcp() ? POLLOUT : POLLIN);
}

void PortProbes::Forget(std::int32_t number) { probes_.erase(number); }

void PortProbes::ForgetAll(const EchoReceiver& receiver) {
  std::erase_if(probes_,
                [&](const auto& probe) { return probe.second->Receiver().get() == &receiver; });
}

// What the error queue holds; an error of this system's own has nobody who said it.
std::optional<EchoOutcome> PortProbes::ReadError(const Probe& probe) {
  const int count = batch_.Receive(probe.Handle(), true);
  for (int i = 0; i < count; ++i) {
    const BatchMessage message = batch_[static_cast<std::size_t>(i)];
    if (!message.isIcmpError) continue;
    const AddressFamily family = probe.Request().ip.Family();
    const auto status = IcmpErrorStatus(family, message.error.type, message.error.code);
    return EchoOutcome{status.value_or(kIpGeneralFailure),
                       message.error.from,
                       probe.Sent().Until(message.arrived),
                       message.ttl,
                       message.error.type,
                       message.error.code,
                       ReadMplsLabels(message.error.extensions)};
  }
  const std::int32_t error = PendingError(probe.Handle());
  if (error == 0) return std::nullopt;
  return EchoOutcome{EchoSendStatus(error)};
}

std::optional<EchoOutcome> PortProbes::Read(const Probe& probe, SocketEvent event,
                                            std::int32_t error) {
  if (event == SocketEvent::Write) return std::nullopt;
  if (auto outcome = ReadError(probe)) return outcome;
  const IpAddress& from = probe.Request().ip;
  if (!probe.IsTcp()) {
    if (batch_.Receive(probe.Handle(), false) <= 0) return std::nullopt;
    const BatchMessage message = batch_[0];
    return EchoOutcome{kIpSuccess, from, probe.Sent().Until(message.arrived), message.ttl};
  }
  // A refusal without an ICMP error is the host's own word.
  if (error == 0 || error == kErrRefused) {
    return EchoOutcome{kIpSuccess, from, probe.Sent().Until({}), 0};
  }
  return EchoOutcome{EchoSendStatus(error)};
}

void PortProbes::Look(Probe& probe, SocketEvent event, std::int32_t error) {
  auto outcome = Read(probe, event, error);
  if (!outcome) return;
  // What the system has sent again was lost, whatever came then.
  if (probe.IsTcp() && WasRepeated(probe.Handle())) outcome = EchoOutcome{kIpTimedOut};
  const auto receiver = probe.Receiver();
  const std::int32_t number = probe.Number();
  Forget(number);  // closes the socket; nothing of this object is touched after the call
  if (receiver->alive) receiver->answered(number, *outcome);
}

}  // namespace netro
