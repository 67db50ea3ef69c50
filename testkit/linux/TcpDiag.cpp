#include "testkit/TcpDiag.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace netro::testkit {
namespace {

struct Request {
  nlmsghdr header;
  inet_diag_req_v2 query;
};

// The peer's socket: its own address is this socket's peer address and the other way round.
bool IdOfPeer(int fd, inet_diag_sockid& id) {
  sockaddr_in own{}, peer{};
  socklen_t ownSize = sizeof own, peerSize = sizeof peer;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&own), &ownSize) != 0 ||
      getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerSize) != 0)
    return false;
  id.idiag_sport = peer.sin_port;
  id.idiag_src[0] = peer.sin_addr.s_addr;
  id.idiag_dport = own.sin_port;
  id.idiag_dst[0] = own.sin_addr.s_addr;
  id.idiag_cookie[0] = id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return true;
}

std::uint64_t BytesReceived(const nlmsghdr* header, const inet_diag_msg* message) {
  auto left = static_cast<int>(header->nlmsg_len - NLMSG_LENGTH(sizeof *message));
  for (auto* part = reinterpret_cast<const rtattr*>(message + 1); RTA_OK(part, left);
       part = RTA_NEXT(part, left)) {
    if (part->rta_type != INET_DIAG_INFO) continue;
    tcp_info info{};
    const std::size_t size = RTA_PAYLOAD(part);
    std::memcpy(&info, RTA_DATA(part), size < sizeof info ? size : sizeof info);
    return info.tcpi_bytes_received;
  }
  return 0;
}

bool IsConfirmed(int fd) {
  int unconfirmed = 0;
  return ioctl(fd, SIOCOUTQ, &unconfirmed) != 0 || unconfirmed == 0;
}

}  // namespace

int OpenTcpDiag() { return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG); }

bool PeerHasRead(int diagFd, int fd, std::uint64_t sent) {
  Request request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.query.sdiag_family = AF_INET;
  request.query.sdiag_protocol = IPPROTO_TCP;
  request.query.idiag_ext = 1 << (INET_DIAG_INFO - 1);
  request.query.idiag_states = ~0U;
  if (!IdOfPeer(fd, request.query.id)) return true;
  if (diagFd < 0 || send(diagFd, &request, sizeof request, 0) < 0) return IsConfirmed(fd);

  alignas(nlmsghdr) char reply[4096];
  const ssize_t size = recv(diagFd, reply, sizeof reply, 0);
  const auto* header = reinterpret_cast<const nlmsghdr*>(reply);
  if (size < 0 || !NLMSG_OK(header, static_cast<std::size_t>(size))) return IsConfirmed(fd);
  if (header->nlmsg_type == NLMSG_ERROR) {
    const auto* error = static_cast<const nlmsgerr*>(NLMSG_DATA(header));
    return error->error == -ENOENT || IsConfirmed(fd);
  }
  const auto* message = static_cast<const inet_diag_msg*>(NLMSG_DATA(header));
  return message->idiag_rqueue == 0 && BytesReceived(header, message) >= sent;
}

}  // namespace netro::testkit
