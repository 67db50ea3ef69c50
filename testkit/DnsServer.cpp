#include <netro/testkit/DnsServer.h>

#include "testkit/Sockets.h"

namespace netro::testkit {
namespace {

// Reads on until `bytes` holds a whole framed message and takes it from the front.
bool ReadMessage(Connection& connection, std::string& bytes, std::string& message) {
  for (;;) {
    if (bytes.size() >= 2) {
      const std::size_t size = static_cast<std::size_t>(static_cast<std::uint8_t>(bytes[0])) * 256 +
                               static_cast<std::uint8_t>(bytes[1]);
      if (bytes.size() >= 2 + size) {
        message = bytes.substr(2, size);
        bytes.erase(0, 2 + size);
        return true;
      }
    }
    if (!connection.Read(bytes)) return false;
  }
}

}  // namespace

DnsServer::DnsServer(Answer answer, Talk talk)
    : answer_(std::move(answer)), talk_(std::move(talk)) {
  do {  // until a free port of TCP is one of UDP as well
    tcp_ = std::make_unique<LoopbackServer>(
        [this](Connection& connection, std::size_t) { ServeConnection(connection); });
    udp_ = std::make_unique<DatagramServer>(
        [this](const std::string& query) {
          Keep(query);
          return answer_(query);
        },
        Port());
  } while (!udp_->IsUp());
}

std::vector<std::string> DnsServer::Queries() {
  udp_->Received();  // waits for what was sent before
  const std::lock_guard lock(mutex_);
  return queries_;
}

void DnsServer::Keep(const std::string& query) {
  const std::lock_guard lock(mutex_);
  queries_.push_back(query);
  ++count_;
}

void DnsServer::ServeConnection(Connection& connection) {
  std::string bytes;
  std::string query;
  while (ReadMessage(connection, bytes, query)) {
    Keep(query);
    if (talk_) return talk_(connection, query);
    for (const Reply& reply : answer_(query)) connection.Send(dns::Framed(reply.bytes));
  }
}

DnsServer::Answer AnswersOf(std::map<std::string, std::string> hosts) {
  return [hosts = std::move(hosts)](const std::string& query) -> DnsServer::Replies {
    constexpr int kAddress = 1;
    constexpr int kNoSuchName = 3;
    DnsReply reply(query);
    const auto host = hosts.find(dns::QuestionName(query));
    std::uint32_t ip = 0;
    if (host == hosts.end()) {
      reply.Code(kNoSuchName);
    } else if (dns::QuestionType(query) == kAddress && ReadIp(host->second, ip)) {
      reply.Answer(dns::Record(dns::kQuestion, kAddress,
                               {static_cast<char>(ip >> 24), static_cast<char>(ip >> 16 & 0xFF),
                                static_cast<char>(ip >> 8 & 0xFF), static_cast<char>(ip & 0xFF)}));
    }
    return {reply.Bytes()};
  };
}

}  // namespace netro::testkit
