#include "dns/DnsQuery.h"

#include <algorithm>
#include <utility>

#include "dns/DnsResult.h"
#include "dns/DnsStream.h"
#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

constexpr long kTcpSeconds = 10;
// What a pause after sending and three receive tests with theirs come to.
constexpr std::chrono::milliseconds kUdpWait(100 + 3 * 333);
constexpr long kServerLookupSeconds = 30;
constexpr std::int32_t kLargestType = 65535;

void Assign(std::string& text, const Bytes& bytes) {
  text.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

DnsQuery::DnsQuery(QueryDNSCLS& owner) : DnsQuery(owner, CancelMark(owner.module_, owner.call_)) {}

DnsQuery::DnsQuery(QueryDNSCLS& owner, const CancelMark& mark)
    : owner_(owner),
      call_(owner.call_),
      mark_(mark),
      settings_(owner.settings_),
      proxy_(owner.Proxy()) {
  Forget();
}

void DnsQuery::Forget() {
  for (auto& records : owner_.records_) records.clear();
  owner_.isAuthoritative_ = owner_.isRecursionAvailable_ = owner_.isTruncated_ = false;
  owner_.outBuffer_.clear();
  owner_.inBuffer_.clear();
}

std::int32_t DnsQuery::Run() {
  std::int32_t code = kDnsNothingToDo;
  for (std::int32_t attempt = 0; attempt < settings_.retryCount; ++attempt) {
    code = Exchange(settings_.useUDP);
    if (code != kErrTimedOut || settings_.retryCount == 1) break;
    const auto pause = std::chrono::milliseconds(settings_.retryPause);
    const WaitEnd end = WaitUntil(mark_, Now() + pause, [&] { return !call_->alive; });
    if (end != WaitEnd::TimedOut || mark_.Cancelled()) break;
  }
  return code;
}

std::int32_t DnsQuery::RunOnce() { return Exchange(false); }

std::int32_t DnsQuery::Check() {
  if (settings_.domain.empty()) return kDnsNoDomain;
  if (settings_.dnsServer.empty()) return kDnsNoServer;
  if (settings_.queryType < 0 || settings_.queryType > kLargestType) return kErrInvalidArgument;
  return 0;
}

std::int32_t DnsQuery::Exchange(bool udp) {
  Forget();
  if (const std::int32_t code = Check()) return code;
  const auto query =
      ComposeQuery({settings_.domain, settings_.queryType,
                    static_cast<std::uint16_t>(settings_.queryClass), settings_.useRecursion});
  if (!query) return kErrNoDnsEntries;
  Assign(owner_.outBuffer_, udp ? *query : WithLength(*query));
  return udp ? ExchangeUdp(*query) : ExchangeTcp(*query);
}

std::int32_t DnsQuery::ExchangeUdp(const Bytes& query) {
  Bytes message;
  const DnsServer server{settings_.dnsServer, settings_.dnsPort};
  const std::int32_t error =
      AskOverUdp(server, query, mark_, kUdpWait, SecondsFromNow(kServerLookupSeconds), message);
  if (!call_->alive) return kErrCancelled;
  if (error != 0) return error;
  DnsFlags flags;
  const bool read = ReadReply(message, flags, owner_.records_);
  Publish(flags, message, flags.IsTruncated());
  const bool empty = std::ranges::all_of(owner_.records_, &std::deque<DNSCLS>::empty);
  return read && flags.Code() == 0 && !empty ? 0 : kErrNoDnsEntries;
}

std::int32_t DnsQuery::ExchangeTcp(const Bytes& query) {
  ConnectionPlan plan;
  if (const std::int32_t error = Plan(plan)) return error;
  const bool transfer = settings_.queryType == TYPE_AXFR || settings_.queryType == TYPE_IXFR;
  DnsTcpResult result = AskOverTcp(plan, query, transfer, mark_);
  if (!call_->alive) return kErrCancelled;
  owner_.records_ = std::move(result.reply.records);
  const DnsFlags flags = result.reply.flags;
  Publish(flags, result.message, flags.HasReservedBit());  // it has always been this one
  return result.code;
}

std::int32_t DnsQuery::Plan(ConnectionPlan& plan) const {
  plan.host = settings_.dnsServer;
  plan.port = settings_.dnsPort;
  plan.seconds = kTcpSeconds;
  return PlanProxy(proxy_, plan) ? 0 : kErrInvalidArgument;
}

void DnsQuery::Publish(const DnsFlags& flags, const Bytes& message, bool truncated) {
  owner_.isAuthoritative_ = flags.IsAuthoritative();
  owner_.isRecursionAvailable_ = flags.IsRecursionAvailable();
  owner_.isTruncated_ = truncated;
  Assign(owner_.inBuffer_, message);
}

}  // namespace netro
