#include "tests/peers/EchoPeer.h"

#include <arpa/inet.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "tests/peers/IcmpBytes.h"

namespace netro::testkit {
namespace {

std::size_t Byte(const std::string& packet, std::size_t at) {
  return static_cast<unsigned char>(packet[at]);
}

int Big16(const std::string& packet, std::size_t at) {
  return static_cast<int>(Byte(packet, at) * 256 + Byte(packet, at + 1));
}

std::string AddressAt(bool v6, const std::string& packet, std::size_t at) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(v6 ? AF_INET6 : AF_INET, packet.data() + at, text, sizeof text);
  return text;
}

void SwitchOn(int fd, int option) {
  const int on = 1;
  setsockopt(fd, IPPROTO_IPV6, option, &on, sizeof on);
}

// Only requests, so that its own answers do not fill the buffer (<linux/icmp.h>: ICMP_FILTER).
void PassRequestsOnly(int fd, bool v6) {
  if (!v6) {
    const std::uint32_t filteredOut = ~(1U << 8);
    setsockopt(fd, SOL_RAW, 1, &filteredOut, sizeof filteredOut);
    return;
  }
  icmp6_filter filter;
  ICMP6_FILTER_SETBLOCKALL(&filter);
  ICMP6_FILTER_SETPASS(ICMP6_ECHO_REQUEST, &filter);
  setsockopt(fd, IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
}

// The header that the system keeps to itself, from what it tells beside a message.
std::string Ip6Header(msghdr& message, const sockaddr_in6& source, std::size_t size) {
  std::string header = "\x60" + std::string(3, '\0') + static_cast<char>(size >> 8 & 0xFF) +
                       static_cast<char>(size & 0xFF) + '\x3A' + '\0';
  in6_pktinfo info{};
  int hopLimit = 0;
  for (cmsghdr* at = CMSG_FIRSTHDR(&message); at != nullptr; at = CMSG_NXTHDR(&message, at)) {
    if (at->cmsg_type == IPV6_HOPLIMIT) std::memcpy(&hopLimit, CMSG_DATA(at), sizeof hopLimit);
    if (at->cmsg_type == IPV6_PKTINFO) std::memcpy(&info, CMSG_DATA(at), sizeof info);
  }
  header[7] = static_cast<char>(hopLimit);
  header.append(reinterpret_cast<const char*>(&source.sin6_addr), 16);
  return header.append(reinterpret_cast<const char*>(&info.ipi6_addr), 16);
}

std::string Compose(const std::string& from, const EchoPeer::Request& request,
                    const std::string& message) {
  IpFields fields;
  fields.source = from;
  fields.destination = request.source;
  return IpBytes(fields, message);
}

}  // namespace

EchoPeer::EchoPeer(Answer answer, bool v6)
    : answer_(std::move(answer)),
      v6_(v6),
      receive_(socket(v6 ? AF_INET6 : AF_INET, SOCK_RAW | SOCK_CLOEXEC,
                      v6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP})),
      send_(socket(v6 ? AF_INET6 : AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  PassRequestsOnly(receive_, v6);
  for (const int option : {IPV6_RECVPKTINFO, IPV6_RECVHOPLIMIT}) {
    if (v6) SwitchOn(receive_, option);
  }
  if (IsUp()) thread_ = std::thread([this] { Loop(); });
}

EchoPeer::~EchoPeer() {
  const std::uint64_t one = 1;
  (void)!write(stop_, &one, sizeof one);
  if (thread_.joinable()) thread_.join();
  for (const int fd : {receive_, send_, stop_})
    if (fd >= 0) close(fd);
}

std::vector<EchoPeer::Request> EchoPeer::Received() {
  const std::lock_guard lock(mutex_);
  return received_;
}

std::string EchoPeer::Reply(const Request& request) {
  const int type = request.IsIPv6() ? 129 : 0;
  return Compose(request.destination, request,
                 EchoMessage(type, request.identifier, request.sequence, request.data));
}

std::string EchoPeer::Error(int type, int code, const std::string& from, const Request& request,
                            const std::string& extensions) {
  return Compose(from, request, IcmpErrorMessage(type, code, request.packet, extensions));
}

void EchoPeer::Loop() {
  std::string room(65'600, '\0');
  for (;;) {
    pollfd entries[] = {{receive_, POLLIN, 0}, {stop_, POLLIN, 0}};
    poll(entries, 2, -1);
    if (entries[1].revents != 0) return;
    Take(Receive(room));
  }
}

std::string EchoPeer::Receive(std::string& room) {
  sockaddr_in6 source{};
  iovec part{room.data(), room.size()};
  alignas(cmsghdr) char control[128];
  msghdr message{};
  message.msg_name = &source;
  message.msg_namelen = sizeof source;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t got = recvmsg(receive_, &message, 0);
  if (got < 0) return {};
  const auto size = static_cast<std::size_t>(got);
  return (v6_ ? Ip6Header(message, source, size) : std::string()) + room.substr(0, size);
}

void EchoPeer::Take(const std::string& packet) {
  const std::size_t header = v6_ ? 40 : 20;
  if (packet.size() < header + 8 || (!v6_ && packet[0] != 0x45)) return;  // no options come to it
  Request request;
  request.packet = packet;
  request.source = AddressAt(v6_, packet, v6_ ? 8 : 12);
  request.destination = AddressAt(v6_, packet, v6_ ? 24 : 16);
  request.ttl = static_cast<int>(Byte(packet, v6_ ? 7 : 8));
  request.identifier = Big16(packet, header + 4);
  request.sequence = Big16(packet, header + 6);
  request.data = packet.substr(header + 8);
  {
    const std::lock_guard lock(mutex_);
    received_.push_back(request);
  }
  for (const std::string& answer : answer_(request)) {
    sockaddr_storage to{};
    to.ss_family = v6_ ? AF_INET6 : AF_INET;
    const std::size_t size = v6_ ? 16 : 4;
    // Where either address of a name begins.
    std::memcpy(reinterpret_cast<char*>(&to) + (v6_ ? 8 : 4), answer.data() + (v6_ ? 24 : 16),
                size);
    sendto(send_, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           v6_ ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
  }
}

}  // namespace netro::testkit
