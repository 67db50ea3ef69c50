#include "socket/DatagramSocket.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

// Where the system sends what is for no address, and replies come from.
IpAddress LoopbackOf(AddressFamily family) {
  return *ParseAddress(family == AddressFamily::IPv6 ? "::1" : "127.0.0.1");
}

}  // namespace

DatagramSocket::~DatagramSocket() {
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t DatagramSocket::Open(const Options& options, const SocketAddress& target) {
  target_ = target;
  if (target.ip.IsNone() || target.ip.IsUnspecified()) target_.ip = LoopbackOf(target.ip.Family());
  notifier_.DatagramRoom();  // made now, where there may be no memory
  std::int32_t error = CreateSocket(SocketKind::Datagram, target_.ip.Family(), handle_);
  if (error == 0 && options.reuseAddress) error = SetReuseAddress(handle_);
  if (error == 0 && options.broadcast) error = SetBroadcast(handle_);
  connected_ = options.connected;
  dated_ = options.dated;
  if (error == 0 && dated_) SetArrivalTimes(handle_);
  if (error == 0 && connected_) error = SetPeer(handle_, target_);
  if (error == 0) error = notifier_.Watch(handle_, SocketKind::Datagram, *this);
  if (error == 0) notifier_.SetAwaited(handle_);
  return error;
}

void DatagramSocket::Begin(std::shared_ptr<CallState> call, Filter wanted) {
  call_ = std::move(call);
  wanted_ = std::move(wanted);
  readable_ = sendBlocked_ = false;
  ++exchanges_;
}

void DatagramSocket::End() {
  call_ = nullptr;
  wanted_ = nullptr;
}

std::int32_t DatagramSocket::Send(std::span<const std::uint8_t> datagram) {
  std::int32_t error = 0;
  notifier_.Send(handle_, datagram, error, connected_ ? nullptr : &target_);
  sendBlocked_ = error == kErrWouldBlock;
  return error;
}

std::int32_t DatagramSocket::Take(Bytes& reply) {
  reply = std::exchange(reply_, {});
  readable_ = false;
  if (!wanted_) notifier_.Renew(handle_);
  return error_;
}

void DatagramSocket::OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t /*error*/) {
  if (event == SocketEvent::Write) sendBlocked_ = false;
  if (call_ == nullptr) return;
  call_->Changed();
  if (event != SocketEvent::Read || readable_) return;
  const std::span<std::uint8_t> room = notifier_.DatagramRoom();
  const auto got = notifier_.Receive(handle_, room, error_);
  if (dated_) arrival_ = ArrivalTime(handle_);
  try {
    reply_.assign(room.begin(), room.begin() + std::max<std::ptrdiff_t>(got, 0));
  } catch (const std::bad_alloc&) {  // lost, as any datagram may be; but not in silence
    error_ = kErrNoBuffers;
    readable_ = true;
    return;
  }
  if (got >= 0 && wanted_ && !wanted_(reply_)) return notifier_.Renew(handle_);
  readable_ = got >= 0 || error_ != kErrWouldBlock;
}

}  // namespace netro
