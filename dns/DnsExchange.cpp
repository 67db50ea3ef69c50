#include "dns/DnsExchange.h"

#include <netro/UDPCls.h>

#include <algorithm>
#include <utility>

#include "dns/DnsResult.h"
#include "dns/DnsStream.h"
#include "platform/ErrorNumbers.h"
#include "socket/DatagramExchange.h"
#include "socket/StreamExchange.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kReceiveTests = 3;
constexpr std::int32_t kReceivePause = 333;

constexpr std::int32_t kNoType = 0;

class TcpExchange final : public StreamExchange {
 public:
  TcpExchange(const Bytes& query, bool transfer, const CancelMark& mark)
      : StreamExchange(mark), query_(query), transfer_(transfer) {}

  DnsTcpResult Ask(const ConnectionPlan& plan) {
    result_.code = Run(plan, transfer_ ? Silence::FromArrival : Silence::FromRequest);
    return std::move(result_);
  }

 private:
  std::string Request() override {
    const Bytes request = WithLength(query_);
    return {request.begin(), request.end()};
  }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    stream_.Feed(bytes, [this](std::span<const std::uint8_t> message) { Take(message); });
  }

  std::int32_t PeerClosed(std::int32_t error) override { return error != 0 ? error : kDnsCutShort; }

  void Take(std::span<const std::uint8_t> message) {
    const bool first = result_.message.empty();
    if (Ended() || !AnswersQuery(message, query_, first)) return;
    if (first) result_.message.assign(message.begin(), message.end());
    const std::size_t before = result_.reply.records[DnsReply::Answer].size();
    if (!ReadReply(message, result_.reply)) {
      const std::int32_t code = result_.reply.flags.Code();
      return End(code != 0 ? code : kDnsCutShort);
    }
    Judge(before);
  }

  void Judge(std::size_t before) {
    const auto& answers = result_.reply.records[DnsReply::Answer];
    if (const std::int32_t code = result_.reply.flags.Code()) return End(code);
    if (result_.reply.Count() == 0) return End(kDnsNoRecords);
    if (!transfer_ || answers.empty() || answers.front().DataType() != TYPE_SOA) return End(0);
    for (std::size_t i = before; i < answers.size(); ++i) {
      const std::int32_t type = answers[i].DataType();
      if (type == kNoType || (type == TYPE_SOA && i > 0)) return End(0);
    }
  }

  const Bytes& query_;
  const bool transfer_;
  DnsStream stream_;
  DnsTcpResult result_;
};

}  // namespace

std::int32_t AskOverUdp(const DnsServer& server, const Bytes& query, const CancelMark& mark,
                        TimePoint limit, Bytes& message) {
  const TimePoint now = Now();
  if (now >= limit) return kErrTimedOut;
  const milliseconds pause = std::min(
      milliseconds(kReceivePause), std::chrono::ceil<milliseconds>((limit - now) / kReceiveTests));
  UDPCls client;
  client.URL(server.host);
  client.Port(server.port);
  client.RetryCount(kReceiveTests);
  client.RetryPauseMilliSeconds(static_cast<std::int32_t>(pause.count()));
  return UDPOwner::Query(
      client, query,
      [&](std::span<const std::uint8_t> reply) { return AnswersQuery(reply, query); }, mark,
      message);
}

DnsTcpResult AskOverTcp(const ConnectionPlan& plan, const Bytes& query, bool transfer,
                        const CancelMark& mark) {
  return TcpExchange(query, transfer, mark).Ask(plan);
}

}  // namespace netro
