// Both processes block in the system's calls and serve one query after the other.

#include "bench/DnsServers.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string_view>

#include "bench/DnsReplies.h"

namespace netro::bench {
namespace {

constexpr int kHostsPerMessage = 800;

void ServeDatagrams(int fd) {
  const Records answer = OneAddress();
  std::array<char, 4096> buffer;
  for (;;) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    auto* address = reinterpret_cast<sockaddr*>(&from);
    const ssize_t got = recvfrom(fd, buffer.data(), buffer.size(), 0, address, &size);
    const std::string_view query(buffer.data(),
                                 static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (!QuestionOf(query).empty()) {
      const std::string reply = ComposeReply(query, answer);
      sendto(fd, reply.data(), reply.size(), 0, address, size);
    }
  }
}

bool ReceiveAll(int fd, char* to, std::size_t size) {
  return recv(fd, to, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

/// The next query without its length; empty at the end of the connection.
std::string ReceiveQuery(int fd) {
  std::array<char, 2> length;
  if (!ReceiveAll(fd, length.data(), length.size())) {
    return {};
  }
  std::string query(static_cast<std::size_t>(static_cast<unsigned char>(length[0]) << 8 |
                                             static_cast<unsigned char>(length[1])),
                    '\0');
  return ReceiveAll(fd, query.data(), query.size()) ? query : std::string();
}

/// The number that a zone's name begins with.
int HostsOf(std::string_view question) {
  return std::atoi(std::string(question.substr(1)).c_str());
}

void SendTransfer(int fd, std::string_view query) {
  const std::string start = ComposeStreamReply(query, ZoneStart());
  const int hosts = HostsOf(QuestionOf(query));
  bool good = SendAll(fd, start);
  for (int first = 0; good && first < hosts; first += kHostsPerMessage) {
    const Records records = ZoneHosts(first, std::min(kHostsPerMessage, hosts - first));
    good = SendAll(fd, ComposeStreamReply(query, records));
  }
  if (good) {
    SendAll(fd, start);
  }
}

/// The replies are made once for each type.
void ServeConnections(int listening) {
  std::map<std::uint16_t, Records> answers;
  for (int fd = 0; (fd = accept(listening, nullptr, nullptr)) >= 0; close(fd)) {
    for (std::string query; !QuestionOf(query = ReceiveQuery(fd)).empty();) {
      const std::uint16_t type = TypeOf(QuestionOf(query));
      if (type == kTypeAxfr) {
        SendTransfer(fd, query);
        continue;
      }
      if (!answers.contains(type)) {
        answers[type] = ManyRecords(type);
      }
      SendAll(fd, ComposeStreamReply(query, answers[type]));
    }
  }
}

}  // namespace

DnsServers::DnsServers() {
  const int datagrams = BindOnLoopback(udpPort_);
  const int listening = ListenOnLoopback(tcpPort_);
  if (datagrams < 0 || listening < 0) {
    std::fprintf(stderr, "cannot start the benchmark's DNS server\n");
    std::exit(1);
  }
  udp_ = std::make_unique<ChildProcess>([datagrams] { ServeDatagrams(datagrams); });
  tcp_ = std::make_unique<ChildProcess>([listening] { ServeConnections(listening); });
  close(datagrams);
  close(listening);
}

}  // namespace netro::bench
