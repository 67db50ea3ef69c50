#include "socket/DatagramSocket.h"

#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

constexpr std::size_t kLargestDatagram = 128'000;

}  // namespace

DatagramSocket::~DatagramSocket() {
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t DatagramSocket::Open(const Options& options, const SocketAddress& target) {
  target_ = target;
  std::int32_t error = CreateSocket(SocketKind::Datagram, handle_);
  if (error == 0 && options.reuseAddress) error = SetReuseAddress(handle_);
  if (error == 0 && options.broadcast) error = SetBroadcast(handle_);
  if (error == 0) error = SetLingerOff(handle_);
  if (error == 0) error = notifier_.Watch(handle_, SocketKind::Datagram, *this);
  if (error == 0) notifier_.SetAwaited(handle_);
  return error;
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
  notifier_.Renew(handle_);
  return error_;
}

void DatagramSocket::OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t /*error*/) {
  if (event == SocketEvent::Write) sendBlocked_ = false;
  if (event != SocketEvent::Read || readable_) return;
  SocketAddress from;
  reply_.resize(kLargestDatagram);
  const auto got = notifier_.Receive(handle_, reply_, error_, &from);
  reply_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  readable_ = got >= 0 || error_ != kErrWouldBlock;
}

}  // namespace netro
