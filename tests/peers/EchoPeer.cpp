#include "tests/peers/EchoPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "tests/peers/IcmpBytes.h"

namespace netro::peers {
namespace {

constexpr std::size_t kHeader = 20 + 8;

std::size_t Byte(const std::string& packet, std::size_t at) {
  return static_cast<unsigned char>(packet[at]);
}

int Big16(const std::string& packet, std::size_t at) {
  return static_cast<int>(Byte(packet, at) * 256 + Byte(packet, at + 1));
}

std::string Dotted(const std::string& packet, std::size_t at) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, packet.data() + at, text, sizeof text);
  return text;
}

}  // namespace

EchoPeer::EchoPeer(Answer answer)
    : answer_(std::move(answer)),
      receive_(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)),
      send_(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  // Only requests, so that its own answers do not fill the buffer (<linux/icmp.h>: ICMP_FILTER).
  const std::uint32_t filteredOut = ~(1U << 8);
  setsockopt(receive_, SOL_RAW, 1, &filteredOut, sizeof filteredOut);
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
  IpFields fields;
  fields.source = request.destination;
  fields.destination = Dotted(request.packet, 12);
  return IpBytes(fields, EchoMessage(0, request.identifier, request.sequence, request.data));
}

std::string EchoPeer::Error(int type, int code, const std::string& from, const Request& request) {
  IpFields fields;
  fields.source = from;
  fields.destination = Dotted(request.packet, 12);
  return IpBytes(fields, IcmpErrorMessage(type, code, request.packet));
}

void EchoPeer::Loop() {
  std::string room(65'536, '\0');
  for (;;) {
    pollfd entries[] = {{receive_, POLLIN, 0}, {stop_, POLLIN, 0}};
    poll(entries, 2, -1);
    if (entries[1].revents != 0) return;
    const ssize_t got = recv(receive_, room.data(), room.size(), 0);
    if (got >= static_cast<ssize_t>(kHeader)) Take(room.substr(0, static_cast<std::size_t>(got)));
  }
}

void EchoPeer::Take(const std::string& packet) {
  if (Byte(packet, 0) != 0x45 || Byte(packet, 20) != 8) return;  // no options are sent to it
  Request request;
  request.packet = packet;
  request.destination = Dotted(packet, 16);
  request.ttl = static_cast<int>(Byte(packet, 8));
  request.identifier = Big16(packet, 24);
  request.sequence = Big16(packet, 26);
  request.data = packet.substr(kHeader);
  {
    const std::lock_guard lock(mutex_);
    received_.push_back(request);
  }
  for (const std::string& answer : answer_(request)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    inet_pton(AF_INET, Dotted(answer, 16).c_str(), &to.sin_addr);
    sendto(send_, answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           sizeof to);
  }
}

}  // namespace netro::peers
