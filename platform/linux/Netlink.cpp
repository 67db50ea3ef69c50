#include "platform/linux/Netlink.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

constexpr std::size_t kRoom = 65'536;  // the kernel's datagrams are half of it at most

class NetlinkSocket {
 public:
  NetlinkSocket() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {}
  ~NetlinkSocket() {
    if (fd_ >= 0) close(fd_);
  }
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;

  // The kernel answers at once, so this waits for nothing but the kernel's work.
  std::int32_t Ask(std::uint16_t request, std::uint16_t flags, NetlinkBytes payload,
                   const NetlinkVisitor& visit) {
    if (fd_ < 0 || !Send(request, flags, payload)) return SocketErrorNumber(errno);
    std::vector<std::uint8_t> room(kRoom);
    for (;;) {
      sockaddr_nl from{};
      iovec part{room.data(), room.size()};
      msghdr message{};
      message.msg_name = &from;
      message.msg_namelen = sizeof from;
      message.msg_iov = &part;
      message.msg_iovlen = 1;
      const ssize_t got = recvmsg(fd_, &message, 0);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return SocketErrorNumber(errno);
      if (from.nl_pid != 0) continue;  // not from the kernel
      if ((message.msg_flags & MSG_TRUNC) != 0) return kErrMessageTooLong;
      if (const auto end = WalkNetlink({room.data(), static_cast<std::size_t>(got)}, visit))
        return *end;
    }
  }

 private:
  bool Send(std::uint16_t request, std::uint16_t flags, NetlinkBytes payload) const {
    nlmsghdr header{};
    std::vector<std::uint8_t> message(NetlinkAligned(sizeof header + payload.size()));
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + payload.size());
    header.nlmsg_type = request;
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    std::memcpy(message.data(), &header, sizeof header);
    std::ranges::copy(payload, message.begin() + sizeof header);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    return sendto(fd_, message.data(), message.size(), 0,
                  reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) >= 0;
  }

  const int fd_;
};

constexpr std::int32_t kLargestError = 4095;  // the kernel's MAX_ERRNO

// What the message that ends an answer says.
std::int32_t EndOf(std::uint16_t type, NetlinkBytes payload) {
  std::int32_t error = 0;  // the negative errno, also of NLMSG_ERROR's structure
  if (!TakeNetlink(payload, error)) return type == NLMSG_DONE ? 0 : kErrInvalidArgument;
  if (error < -kLargestError) return kErrInvalidArgument;
  return error < 0 ? SocketErrorNumber(-error) : 0;
}

}  // namespace

std::int32_t DumpNetlink(std::uint16_t request, std::uint8_t family, const NetlinkVisitor& visit) {
  const rtgenmsg what{family};
  return NetlinkSocket().Ask(request, NLM_F_DUMP,
                             {reinterpret_cast<const std::uint8_t*>(&what), sizeof what}, visit);
}

std::int32_t AskNetlink(std::uint16_t request, NetlinkBytes payload, const NetlinkVisitor& visit) {
  return NetlinkSocket().Ask(request, NLM_F_ACK, payload, visit);
}

std::int32_t ChangeNetlink(std::uint16_t request, NetlinkBytes payload) {
  return AskNetlink(request, payload, [](std::uint16_t, NetlinkBytes) {});
}

std::optional<std::int32_t> WalkNetlink(NetlinkBytes datagram, const NetlinkVisitor& visit) {
  while (!datagram.empty()) {
    nlmsghdr header;
    NetlinkBytes payload = datagram;
    if (!TakeNetlink(payload, header) || header.nlmsg_len < sizeof header ||
        header.nlmsg_len > datagram.size()) {
      return kErrInvalidArgument;
    }
    payload = payload.first(header.nlmsg_len - sizeof header);
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR)
      return EndOf(header.nlmsg_type, payload);
    visit(header.nlmsg_type, payload);
    datagram = datagram.subspan(std::min(datagram.size(), NetlinkAligned(header.nlmsg_len)));
  }
  return std::nullopt;
}

NetlinkBytes FindAttribute(NetlinkBytes attributes, std::uint16_t type) {
  rtattr header;
  for (NetlinkBytes value = attributes; TakeNetlink(value, header); value = attributes) {
    if (header.rta_len < sizeof header || header.rta_len > attributes.size()) return {};
    if ((header.rta_type & NLA_TYPE_MASK) == type)
      return value.first(header.rta_len - sizeof header);
    attributes = attributes.subspan(std::min(attributes.size(), NetlinkAligned(header.rta_len)));
  }
  return {};
}

}  // namespace netro
