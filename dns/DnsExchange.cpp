#include "dns/DnsExchange.h"

#include <algorithm>
#include <array>
#include <utility>

#include "dns/DnsResult.h"
#include "dns/DnsStream.h"
#include "platform/ErrorNumbers.h"
#include "socket/HostLookup.h"
#include "socket/StreamExchange.h"

namespace netro {
namespace {

constexpr std::int32_t kNoType = 0;

class TcpExchange final : public StreamExchange {
 public:
  TcpExchange(const Bytes& query, bool transfer, const DnsReading& reading, const CancelMark& mark,
              std::uint64_t most)
      : StreamExchange(mark), query_(query), transfer_(transfer), most_(most), result_(reading) {}

  DnsTcpResult Ask(const ConnectionPlan& plan) {
    result_.code = Run(plan);
    return std::move(result_);
  }

 private:
  using Sizes = std::array<std::size_t, DnsReply::Sections>;

  std::string Request() override {
    const Bytes request = WithLength(query_);
    return {request.begin(), request.end()};
  }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    stream_.Feed(bytes, [this](std::span<const std::uint8_t> message) { Take(message); });
    if (transfer_ && stream_.IsInside()) Progress();
  }

  std::int32_t PeerClosed(std::int32_t error) override { return error != 0 ? error : kDnsCutShort; }

  void Take(std::span<const std::uint8_t> message) {
    const bool first = result_.message.empty();
    const bool mine = first ? AnswersQuery(message, query_) || IsBareRefusal(message, query_)
                            : ContinuesAnswer(message, query_);
    if (Ended() || !mine) return;
    Progress();
    if (first) result_.message.assign(message.begin(), message.end());
    Sizes before;
    std::ranges::transform(result_.reply.records, before.begin(), &std::deque<DNSCLS>::size);
    if (!ReadReply(message, result_.reply)) {
      const std::int32_t code = result_.reply.Code();
      return End(code != 0 ? code : kDnsCutShort);
    }
    Judge(before);
  }

  void Judge(const Sizes& before) {
    const auto& answers = result_.reply.records[DnsReply::Answer];
    if (const std::int32_t code = result_.reply.Code()) return End(code);
    if (result_.reply.Count() == 0) return End(kDnsNoRecords);
    if (!transfer_ || answers.empty() || answers.front().DataType() != TYPE_SOA) return End(0);
    for (std::size_t i = before[DnsReply::Answer]; i < answers.size(); ++i) {
      const std::int32_t type = answers[i].DataType();
      if (type == kNoType || (type == TYPE_SOA && i > 0)) return End(0);
    }
    memory_ += MemorySince(before);
    if (memory_ > most_) End(kErrMessageTooLong);
  }

  std::uint64_t MemorySince(const Sizes& before) const {
    std::uint64_t memory = 0;
    for (std::size_t section = 0; section < before.size(); ++section) {
      const auto& records = result_.reply.records[section];
      for (std::size_t i = before[section]; i < records.size(); ++i) {
        memory += sizeof(DNSCLS) + records[i].Query().size() + records[i].Data().size();
      }
    }
    return memory;
  }

  const Bytes& query_;
  const bool transfer_;
  const std::uint64_t most_;
  DnsStream stream_;
  std::uint64_t memory_ = 0;  // of the records of a transfer
  DnsTcpResult result_;
};

}  // namespace

std::int32_t AskOverUdp(const DnsServer& server, const Bytes& query, DatagramExchange& tries,
                        const CancelMark& mark, std::chrono::milliseconds wait, TimePoint limit,
                        Bytes& message) {
  const LookupAnswer host = ResolveHost(server.host, {}, mark, limit);
  if (host.error != 0) return ConnectError(host.error);
  return tries.Ask(
      {host.First(), server.port}, query,
      [&query](std::span<const std::uint8_t> reply) { return AnswersQuery(reply, query); },
      std::min(limit, Now() + wait), message);
}

DnsTcpResult AskOverTcp(const ConnectionPlan& plan, const Bytes& query, bool transfer,
                        const DnsReading& reading, const CancelMark& mark, std::uint64_t most) {
  return TcpExchange(query, transfer, reading, mark, most).Ask(plan);
}

}  // namespace netro
