#include "dns/DnsQuery.h"

#include <algorithm>
#include <utility>

#include "dns/DnsResult.h"
#include "dns/DnsStream.h"
#include "platform/ErrorNumbers.h"
#include "platform/Random.h"

namespace netro {
namespace {

constexpr long kTcpSeconds = 10;
// What a pause after sending and three receive tests with theirs come to.
constexpr std::chrono::milliseconds kUdpWait(100 + 3 * 333);
constexpr long kServerLookupSeconds = 30;
constexpr std::int32_t kLargest16Bits = 65535;
constexpr std::int32_t kRandomId = -1;
constexpr std::int32_t kSmallestSize = 512;
constexpr std::int32_t kUsualSize = 1232;  // crosses any network in one piece

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
      proxy_(owner.Proxy()),
      limit_(settings_.totalTimeout > 0 ? SecondsFromNow(settings_.totalTimeout)
                                        : TimePoint::max()),
      tries_(mark_, mark_.Module().Datagrams()) {
  Forget();
}

void DnsQuery::Forget() {
  for (auto& records : owner_.records_) records.clear();
  owner_.isAuthoritative_ = owner_.isRecursionAvailable_ = owner_.isTruncated_ = false;
  owner_.isOverTcp_ = false;
  owner_.replyCode_ = -1;
  owner_.opt_.reset();
  owner_.areNamesEscaped_ = settings_.escapeNames;
  owner_.outBuffer_.clear();
  owner_.inBuffer_.clear();
}

std::int32_t DnsQuery::Run() {
  std::int32_t code = kDnsNothingToDo;
  for (std::int32_t attempt = 0; attempt < settings_.retryCount; ++attempt) {
    code = Exchange(settings_.useUDP);
    if (code != kErrTimedOut || settings_.retryCount == 1 || Now() >= limit_) break;
    const auto pause = std::chrono::milliseconds(settings_.retryPause);
    const WaitEnd end =
        WaitUntil(mark_, std::min(Now() + pause, limit_), [&] { return !call_->alive; });
    if (end != WaitEnd::TimedOut || mark_.Cancelled() || Now() >= limit_) break;
  }
  return code;
}

std::int32_t DnsQuery::RunOnce() { return Exchange(false); }

std::int32_t DnsQuery::Check() {
  if (settings_.domain.empty()) return kDnsNoDomain;
  if (settings_.dnsServer.empty()) return kDnsNoServer;
  const bool sizeFits = settings_.udpSize >= kSmallestSize && settings_.udpSize <= kLargest16Bits;
  if (settings_.queryType < 0 || settings_.queryType > kLargest16Bits ||
      settings_.queryId < kRandomId || settings_.queryId > kLargest16Bits ||
      (settings_.udpSize != 0 && !sizeFits) || settings_.totalTimeout < 0) {
    return kErrInvalidArgument;
  }
  return 0;
}

DnsQuestion DnsQuery::Question() const {
  DnsQuestion question;
  question.domain = settings_.domain;
  question.type = settings_.queryType;
  question.classNumber = static_cast<std::uint16_t>(settings_.queryClass);
  question.recursion = settings_.useRecursion;
  question.form = Reading().form;
  const bool random = settings_.queryId == kRandomId;
  question.id = static_cast<std::uint16_t>(random ? RandomNumber()
                                                  : static_cast<std::uint32_t>(settings_.queryId));
  if (Reading().takeOpt) {
    const std::int32_t size = settings_.udpSize != 0 ? settings_.udpSize : kUsualSize;
    question.udpSize = static_cast<std::uint16_t>(size);
  }
  question.dnssecOk = settings_.dnssecOk;
  return question;
}

DnsReading DnsQuery::Reading() const {
  return {settings_.escapeNames ? NameForm::Escaped : NameForm::Plain,
          settings_.udpSize != 0 || settings_.dnssecOk};
}

std::int32_t DnsQuery::Exchange(bool udp) {
  Forget();
  if (const std::int32_t code = Check()) return code;
  if (query_.empty()) {
    auto query = ComposeQuery(Question());
    if (!query) return kErrNoDnsEntries;
    query_ = std::move(*query);
  }
  if (!udp) return ExchangeTcp(query_);
  const std::int32_t code = ExchangeUdp(query_);
  if (!call_->alive || !settings_.followTruncation || !owner_.isTruncated_) return code;
  Forget();
  return ExchangeTcp(query_);
}

std::int32_t DnsQuery::ExchangeUdp(const Bytes& query) {
  Assign(owner_.outBuffer_, query);
  Bytes message;
  const DnsServer server{settings_.dnsServer, settings_.dnsPort};
  DnsReply reply(Reading());
  const std::int32_t error =
      AskOverUdp(server, query, tries_, mark_, kUdpWait,
                 std::min(SecondsFromNow(kServerLookupSeconds), limit_), message);
  if (!call_->alive) return kErrCancelled;
  if (error != 0) return error;
  malformed_ = !ReadReply(message, reply);
  const bool good = !malformed_ && reply.Code() == 0 && reply.Count() > 0;
  Publish(reply, message, reply.flags.IsTruncated());
  return good ? 0 : kErrNoDnsEntries;
}

std::int32_t DnsQuery::ExchangeTcp(const Bytes& query) {
  Assign(owner_.outBuffer_, WithLength(query));
  owner_.isOverTcp_ = true;
  ConnectionPlan plan;
  if (const std::int32_t error = Plan(plan)) return error;
  const bool transfer = settings_.queryType == TYPE_AXFR || settings_.queryType == TYPE_IXFR;
  const std::uint64_t most =
      settings_.maxAnswer > 0 ? static_cast<std::uint64_t>(settings_.maxAnswer) : kMostMemory;
  DnsTcpResult result = AskOverTcp(plan, query, transfer, Reading(), mark_, most);
  if (!call_->alive) return kErrCancelled;
  const bool truncated = result.reply.flags.HasReservedBit();  // it has always been this one
  Publish(result.reply, result.message, truncated);
  malformed_ = result.code == kDnsCutShort;
  return result.code;
}

std::int32_t DnsQuery::Plan(ConnectionPlan& plan) const {
  plan.host = settings_.dnsServer;
  plan.port = settings_.dnsPort;
  plan.wait = std::chrono::seconds(kTcpSeconds);
  plan.limit = limit_;
  return PlanProxy(proxy_, plan) ? 0 : kErrInvalidArgument;
}

void DnsQuery::Publish(DnsReply& reply, const Bytes& message, bool truncated) {
  owner_.isAuthoritative_ = reply.flags.IsAuthoritative();
  owner_.isRecursionAvailable_ = reply.flags.IsRecursionAvailable();
  owner_.isTruncated_ = truncated;
  if (!message.empty()) owner_.replyCode_ = reply.Code();
  owner_.opt_ = std::move(reply.opt);
  owner_.records_ = std::move(reply.records);
  Assign(owner_.inBuffer_, message);
}

}  // namespace netro
