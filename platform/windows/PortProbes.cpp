// The system tells a socket that a router has dropped its datagram, or that nobody listens at the
// port, but not who has said so: a hop on the way has no address then. Of a connection that is
// being opened it tells nothing but the outcome.
#include "platform/windows/PortProbes.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

using std::chrono::steady_clock;

constexpr std::size_t kLargestDatagram = 65'507;
constexpr std::uint8_t kFiller = '@';

std::int32_t SetHops(std::int32_t handle, AddressFamily family, DWORD hops) {
  const bool v6 = family == AddressFamily::IPv6;
  if (hops == 0) return 0;
  const int result =
      setsockopt(ToSocket(handle), v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? IPV6_UNICAST_HOPS : IP_TTL,
                 reinterpret_cast<const char*>(&hops), sizeof hops);
  return result == 0 ? 0 : SocketErrorNumber(WSAGetLastError());
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

  const std::shared_ptr<EchoReceiver>& Receiver() const { return receiver_; }
  std::int32_t Number() const { return number_; }

  /// Returns the error number.
  std::int32_t Send() {
    const SocketKind kind = IsTcp() ? SocketKind::Stream : SocketKind::Datagram;
    const AddressFamily family = request_.ip.Family();
    if (request_.ip.IsLinkLocal() && request_.ip.Scope() == 0) return kErrInvalidArgument;
    if (const std::int32_t error = CreateSocket(kind, family, handle_)) return error;
    if (const std::int32_t error = owner_.notifier_.Watch(handle_, kind, *this)) return error;
    if (receiver_->awaited) owner_.notifier_.SetAwaited(handle_);
    const auto hops = static_cast<DWORD>(std::max(request_.ttl, 0));
    if (const std::int32_t error = SetHops(handle_, family, hops)) return error;
    sent_ = steady_clock::now();
    if (!IsTcp()) return SendDatagram();
    owner_.notifier_.Connect(handle_, {request_.ip, request_.port});
    return 0;  // the outcome is told later, whatever it is
  }

 private:
  bool IsTcp() const { return request_.kind == ProbeKind::Tcp; }

  std::int32_t SendDatagram() {
    const auto size = static_cast<std::size_t>(std::max(request_.size, 0));
    if (size > kLargestDatagram) return kErrMessageTooLong;
    if (const std::int32_t error = SetPeer(handle_, {request_.ip, request_.port})) return error;
    const Bytes data(size, kFiller);
    std::int32_t error = 0;
    return owner_.notifier_.Send(handle_, data, error) < 0 ? error : 0;
  }

  void OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t error) override {
    if (event == SocketEvent::Connect) return owner_.End(*this, OutcomeOfTcp(error));
    if (event != SocketEvent::Read) return;
    std::uint8_t byte[2'048];
    std::int32_t told = 0;
    owner_.notifier_.Receive(handle_, byte, told);
    if (told != kErrWouldBlock) owner_.End(*this, OutcomeOfUdp(told));
  }

  // A refusal is the host's own word.
  EchoOutcome OutcomeOfTcp(std::int32_t error) const {
    if (error == 0 || error == kErrRefused) return {kIpSuccess, request_.ip, Age()};
    if (error == WSAETIMEDOUT) return {kIpTimedOut};
    return {EchoSendStatus(error)};
  }

  EchoOutcome OutcomeOfUdp(std::int32_t error) const {
    const bool v6 = request_.ip.IsIPv6();
    switch (error) {
      case 0:
      case kErrMessageTooLong:  // of what an answer holds nothing is wanted
        return {kIpSuccess, request_.ip, Age()};
      case kErrRefused:
        return {kIpNoPort, request_.ip, Age(), 0, v6 ? 1 : 3, v6 ? 4 : 3};
      case WSAENETRESET:  // the datagram's hops were used up
        return {kIpTtlExpired, {}, Age(), 0, v6 ? 3 : 11, 0};
      default:
        return {EchoSendStatus(error)};
    }
  }

  std::chrono::nanoseconds Age() const { return steady_clock::now() - sent_; }

  const EchoRequest request_;
  const std::shared_ptr<EchoReceiver> receiver_;
  const std::int32_t number_;
  PortProbes& owner_;
  std::int32_t handle_ = 0;
  steady_clock::time_point sent_;
};

PortProbes::PortProbes(Notifier& notifier) : notifier_(notifier) {}

PortProbes::~PortProbes() = default;

std::int32_t PortProbes::Send(const EchoRequest& request,
                              const std::shared_ptr<EchoReceiver>& receiver, std::int32_t number) {
  auto probe = std::make_unique<Probe>(*this, request, receiver, number);
  const std::int32_t error = probe->Send();
  if (error == kErrWouldBlock) return kIpNoResources;
  if (error == 0) probes_[number] = std::move(probe);
  return EchoSendStatus(error);
}

void PortProbes::Forget(std::int32_t number) { probes_.erase(number); }

void PortProbes::ForgetAll(const EchoReceiver& receiver) {
  std::erase_if(probes_,
                [&](const auto& probe) { return probe.second->Receiver().get() == &receiver; });
}

void PortProbes::End(Probe& probe, const EchoOutcome& outcome) {
  const auto receiver = probe.Receiver();
  const std::int32_t number = probe.Number();
  Forget(number);  // closes the socket; nothing of this object is touched after the call
  if (receiver->alive) receiver->answered(number, outcome);
}

}  // namespace netro
