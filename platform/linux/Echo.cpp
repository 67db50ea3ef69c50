#include "platform/Echo.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "platform/linux/Descriptor.h"
#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kEchoRequest = 8;
constexpr int kPacketsPerTurn = 64;    // a raw socket sees every ICMP packet of the host
constexpr std::size_t kTokenSize = 8;  // random bytes that tell this request from a stranger's

// RFC 1071.
std::uint16_t Checksum(std::span<const std::uint8_t> bytes) {
  ByteReader reader(bytes);
  std::uint32_t sum = 0;
  while (reader.Remaining() >= 2) sum += reader.U16();
  if (reader.Remaining() == 1) sum += static_cast<std::uint32_t>(reader.U8()) << 8;
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum & 0xFFFF);
}

Bytes Request(std::uint16_t identifier, std::uint16_t sequence, const Bytes& data) {
  const auto compose = [&](std::uint16_t checksum) {
    ByteWriter out;
    out.U8(kEchoRequest);
    out.U8(0);
    out.U16(checksum);
    out.U16(identifier);
    out.U16(sequence);
    out.Append(data);
    return out.Take();
  };
  return compose(Checksum(compose(0)));
}

}  // namespace

Echo::~Echo() {
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t Echo::Open() {
  constexpr int kFlags = SOCK_NONBLOCK | SOCK_CLOEXEC;
  int made = AwayFromZero(socket(AF_INET, SOCK_DGRAM | kFlags, IPPROTO_ICMP));
  raw_ = made < 0;
  if (raw_) made = AwayFromZero(socket(AF_INET, SOCK_RAW | kFlags, IPPROTO_ICMP));
  if (made < 0) return SocketErrorNumber(errno);
  handle_ = made;
  const std::int32_t error = notifier_.Watch(handle_, SocketKind::Datagram, *this);
  notifier_.SetAwaited(handle_);
  return error;
}

std::int32_t Echo::Send(std::int32_t ip, std::span<const std::uint8_t> data) {
  ip_ = ip;
  identifier_ = static_cast<std::uint16_t>(RandomNumber());
  ++sequence_;
  answered_ = false;
  data_.assign(data.begin(), data.end());
  for (std::size_t i = 0; i < kTokenSize; ++i)
    data_.push_back(static_cast<std::uint8_t>(RandomNumber()));
  const Bytes packet = Request(identifier_, sequence_, data_);
  const sockaddr_in to = ToSystem({ip, 0});
  const auto sent = sendto(handle_, packet.data(), packet.size(), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&to), sizeof to);
  return sent < 0 ? SocketErrorNumber(errno) : 0;
}

void Echo::OnSocket(std::int32_t handle, SocketEvent event, std::int32_t /*error*/) {
  if (event != SocketEvent::Read) return;
  std::array<std::uint8_t, 65536> room;
  std::int32_t error = 0;
  SocketAddress from;
  for (int packets = 0; packets < kPacketsPerTurn; ++packets) {
    const auto got = notifier_.Receive(handle, room, error, &from);
    if (got < 0 && error == kErrWouldBlock) return;
    if (got <= 0) continue;  // an error told by ICMP is taken off the socket; go on
    const std::span packet(room.data(), static_cast<std::size_t>(got));
    answered_ = answered_ || (from.ip == ip_ && IsReply(packet));
  }
  notifier_.Renew(handle);
}

bool Echo::IsReply(std::span<const std::uint8_t> packet) const {
  ByteReader reader(packet);
  if (raw_) {  // the IP header comes first; its length is in words
    const std::size_t header = 4U * (reader.U8() & 0x0F);
    if (header < 20) return false;
    reader.Skip(header - 1);
  }
  const std::uint8_t type = reader.U8();
  reader.Skip(3);
  const std::uint16_t identifier = reader.U16();
  const std::uint16_t sequence = reader.U16();
  const auto data = reader.Take(reader.Remaining());
  // The system gives a datagram socket an identifier of its own and delivers by it.
  const bool mine = !raw_ || identifier == identifier_;
  return reader.Ok() && type == kEchoReply && mine && sequence == sequence_ &&
         std::ranges::equal(data, data_);
}

}  // namespace netro
