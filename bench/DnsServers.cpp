// Both processes block in the system's calls and serve one query after the other.

#include "bench/DnsServers.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <string_view>

#include "bench/DnsReplies.h"

namespace netro::bench {
namespace {

constexpr int kHostsPerMessage = 800;
constexpr std::chrono::milliseconds kSlowness(30);

/// So many datagrams at once that the server keeps ahead of any client.
class Batch {
 public:
  Batch() {
    for (std::size_t i = 0; i < kSize; ++i) {
      messages_[i].msg_hdr = {&from_[i], sizeof from_[i], &parts_[i], 1, nullptr, 0, 0};
    }
  }

  void ReceiveAndReply(int fd, const Records& answer) {
    for (std::size_t i = 0; i < kSize; ++i) {
      parts_[i] = {blocks_[i].data(), blocks_[i].size()};
    }
    const int got = recvmmsg(fd, messages_.data(), kSize, MSG_WAITFORONE, nullptr);
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(got, 0)); ++i) {
      const std::string_view query(blocks_[i].data(), messages_[i].msg_len);
      replies_[i] = QuestionOf(query).empty() ? std::string() : ComposeReply(query, answer);
      parts_[i] = {replies_[i].data(), replies_[i].size()};
    }
    sendmmsg(fd, messages_.data(), static_cast<unsigned>(std::max(got, 0)), 0);
  }

 private:
  static constexpr std::size_t kSize = 32;
  std::array<std::array<char, 4096>, kSize> blocks_;
  std::array<std::string, kSize> replies_;
  std::array<iovec, kSize> parts_{};
  std::array<sockaddr_in, kSize> from_{};
  std::array<mmsghdr, kSize> messages_{};
};

void ServeDatagrams(int fd) {
  const Records answer = OneAddress();
  Batch batch;
  for (;;) {
    batch.ReceiveAndReply(fd, answer);
  }
}

struct Waiting {
  std::chrono::steady_clock::time_point due;
  sockaddr_in client;
  std::string reply;
};

void ServeSlowly(int fd) {
  const Records answer = OneAddress();
  std::deque<Waiting> waiting;
  for (;;) {
    int limit = -1;
    for (; !waiting.empty(); waiting.pop_front()) {
      const Waiting& next = waiting.front();
      const auto left = next.due - std::chrono::steady_clock::now();
      limit = static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
      if (limit > 0) {
        break;
      }
      sendto(fd, next.reply.data(), next.reply.size(), 0,
             reinterpret_cast<const sockaddr*>(&next.client), sizeof next.client);
    }
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, waiting.empty() ? -1 : limit) != 1) {
      continue;
    }
    std::array<char, 512> query;
    Waiting added{std::chrono::steady_clock::now() + kSlowness, {}, {}};
    socklen_t size = sizeof added.client;
    const ssize_t got = recvfrom(fd, query.data(), query.size(), 0,
                                 reinterpret_cast<sockaddr*>(&added.client), &size);
    if (got > 0) {
      added.reply = ComposeReply({query.data(), static_cast<std::size_t>(got)}, answer);
      waiting.push_back(std::move(added));
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
  const int slow = BindOnLoopback(slowPort_);
  if (datagrams < 0 || listening < 0 || slow < 0) {
    std::fprintf(stderr, "cannot start the benchmark's DNS server\n");
    std::exit(1);
  }
  udp_ = std::make_unique<ChildProcess>([datagrams] { ServeDatagrams(datagrams); });
  tcp_ = std::make_unique<ChildProcess>([listening] { ServeConnections(listening); });
  slow_ = std::make_unique<ChildProcess>([slow] { ServeSlowly(slow); });
  close(datagrams);
  close(listening);
  close(slow);
}

}  // namespace netro::bench
