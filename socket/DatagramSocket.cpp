#include "socket/DatagramSocket.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

constexpr auto kLoopback = std::bit_cast<std::int32_t>(std::array<std::uint8_t, 4>{127, 0, 0, 1});

}  // namespace

DatagramSocket::~DatagramSocket() {
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t DatagramSocket::Open(const Options& options, const SocketAddress& target) {
  SetTarget(target);
  notifier_.DatagramRoom();  // made now, where there may be no memory
  std::int32_t error = CreateSocket(SocketKind::Datagram, handle_);
  if (error == 0 && options.reuseAddress) error = SetReuseAddress(handle_);
  if (error == 0 && options.broadcast) error = SetBroadcast(handle_);
  if (error == 0) error = notifier_.Watch(handle_, SocketKind::Datagram, *this);
  if (error == 0) notifier_.SetAwaited(handle_);
  return error;
}

// Where the system sends what is for no address, and replies come from.
void DatagramSocket::SetTarget(const SocketAddress& target) {
  target_ = target;
  if (target_.ip == 0) target_.ip = kLoopback;
}

void DatagramSocket::Begin(std::shared_ptr<CallState> call, const SocketAddress& target,
                           Filter wanted) {
  SetTarget(target);
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
  notifier_.Send(handle_, datagram, error, &target_);
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
  SocketAddress from;
  const std::span<std::uint8_t> room = notifier_.DatagramRoom();
  const auto got = notifier_.Receive(handle_, room, error_, &from);
  reply_.assign(room.begin(), room.begin() + std::max<std::ptrdiff_t>(got, 0));
  if (got >= 0 && !IsWanted(from)) return notifier_.Renew(handle_);
  readable_ = got >= 0 || error_ != kErrWouldBlock;
}

bool DatagramSocket::IsWanted(const SocketAddress& from) const {
  return !wanted_ || (from.ip == target_.ip && from.port == target_.port && wanted_(reply_));
}

}  // namespace netro
