#include "dns/NameQuestion.h"

#include <algorithm>
#include <utility>

#include "dns/DnsName.h"
#include "dns/DnsOpt.h"
#include "dns/DnsResult.h"
#include "dns/ServerMemory.h"
#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr int kMostAliases = 16;
constexpr int kMostStrangers = 20;
constexpr std::size_t kMostAddresses = 64;  // of one host
constexpr std::int32_t kTcpSeconds = 3;
constexpr DnsReading kReading{NameForm::Escaped, true, true};

// The name of the question as it is read in a reply.
std::string NameOf(const DnsQuestion& question) {
  constexpr std::size_t kHeaderSize = 12;
  std::string name;
  if (const auto query = ComposeQuery(question)) {
    ByteReader reader(*query);
    reader.Skip(kHeaderSize);
    ReadName(*query, reader, name, kReading.form);
  }
  return name;
}

// What this program lacks tells nothing of the server, nor of the name.
bool IsShortage(std::int32_t error) { return error == kErrTooManyFiles || error == kErrNoBuffers; }

// A server that does not look further names others instead of an answer.
bool IsReferral(const DnsReply& reply) {
  const auto& authority = reply.records[DnsReply::Authority];
  return reply.flags.Code() == kDnsSuccess && !reply.flags.IsAuthoritative() &&
         !reply.flags.IsRecursionAvailable() &&
         std::ranges::none_of(authority,
                              [](const DNSCLS& record) { return record.DataType() == TYPE_SOA; });
}

// Some servers take an OPT record for a part of the question and send it back with that.
bool RepeatsOpt(const DnsReply& reply) {
  return std::ranges::any_of(reply.records[DnsReply::Answer],
                             [](const DNSCLS& record) { return record.DataType() == kTypeOpt; });
}

}  // namespace

NameQuestion::NameQuestion(DnsQuestion question, const std::vector<DnsServer>& servers,
                           LookupRules rules, const CancelMark& mark, TimePoint deadline)
    : question_(std::move(question)),
      name_(NameOf(question_)),
      servers_(servers),
      rules_(rules),
      mark_(mark),
      deadline_(deadline),
      order_(ServerMemory::Order(servers)),
      due_(Now()) {}

void NameQuestion::Decide(std::int32_t error) {
  decided_ = true;
  decidedAt_ = Now();
  tries_.clear();
  if (error == kErrTryAgain && mark_.Expired(deadline_)) error = kErrTimedOut;
  if (error != 0) answer_ = {{}, error, {}};
}

bool NameQuestion::HasNews() const {
  return !decided_ && (Now() >= due_ || std::ranges::any_of(tries_, [](const Try& one) {
                         return one.socket.Readable();
                       }));
}

void NameQuestion::Step() {
  for (auto one = tries_.begin(); !decided_ && one != tries_.end();) {
    const auto taken = one++;
    if (taken->socket.Readable()) Take(*taken);
  }
  if (!decided_ && Now() >= due_) Next();
}

void NameQuestion::Next() {
  if (awaiting_) ServerMemory::WasSilent(servers_[tries_.back().server]);
  awaiting_ = false;
  if (!ChooseServer()) return Decide(kErrTryAgain);
  const std::size_t server = order_[next_++];
  // Some silence comes of firewalls that let no extended query through.
  Begin(server, round_ == 0 && !ServerMemory::RefusesEdns(servers_[server]));
}

bool NameQuestion::ChooseServer() {
  if (next_ < order_.size()) return true;
  next_ = 0;
  return !order_.empty() && ++round_ < rules_.rounds;
}

void NameQuestion::Begin(std::size_t server, bool extended) {
  auto query = LookupQuery::Make(question_, extended);
  if (!query) return Decide(kErrNoDnsEntries);
  const LookupAnswer host = ResolveHost(servers_[server].host, {}, mark_, deadline_);
  if (mark_.Cancelled()) return Decide(kErrCancelled);
  due_ = Now();
  if (host.error == kErrNoBuffers) return Decide(kErrNoBuffers);
  if (host.error != 0) return Drop(server);
  Try& made = tries_.emplace_back(mark_.Module().Notifications(), mark_.Object());
  made.query = std::move(*query);
  made.server = server;
  made.socket.TakeOnly([this, &made](std::span<const std::uint8_t> reply) {
    return made.query.MatchOf(reply) != LookupQuery::Match::None || ++strangers_ == kMostStrangers;
  });
  const SocketAddress target{host.First(), servers_[server].port};
  std::int32_t error = made.socket.Open({.connected = true}, target);
  if (error == 0) error = made.socket.Send(made.query.message);
  if (IsShortage(error)) return Decide(kErrNoBuffers);
  if (error != 0) {
    tries_.pop_back();
    return Drop(server);
  }
  awaiting_ = true;
  due_ += rules_.wait;
}

// A server that refuses, or whose reply says nothing, is not asked again; the next one is at once.
void NameQuestion::Take(Try& of) {
  Bytes message;
  const std::size_t server = of.server;
  const bool last = &of == &tries_.back();
  const std::int32_t error = of.socket.Take(message);
  if (IsShortage(error)) return Decide(kErrNoBuffers);
  error == 0 ? ServerMemory::Answered(servers_[server]) : ServerMemory::WasSilent(servers_[server]);
  const Outcome outcome = error == 0 ? Judge(message, of) : Outcome::Useless;
  if (decided_ || outcome == Outcome::AskedAgain) return;
  if (outcome == Outcome::Attacked) return of.socket.ListenOn();
  tries_.remove_if([&](const Try& one) { return &one == &of; });
  if (outcome == Outcome::Useless) Drop(server);
  if (last) {
    awaiting_ = false;
    due_ = Now();
  }
}

void NameQuestion::Drop(std::size_t server) {
  const auto dropped = std::ranges::find(order_, server);
  if (dropped == order_.end()) return;
  if (static_cast<std::size_t>(dropped - order_.begin()) < next_) --next_;
  order_.erase(dropped);
}

NameQuestion::Outcome NameQuestion::Judge(const Bytes& message, const Try& of) {
  const LookupQuery::Match match = of.query.MatchOf(message);
  if (match == LookupQuery::Match::None || match == LookupQuery::Match::OtherCase) {
    return AskOverTcp(of.server) ? Outcome::Useless : Outcome::Attacked;
  }
  DnsReply reply(kReading);
  const bool good = ReadReply(message, reply);
  const std::int32_t code = reply.Code();
  const bool refused = !good || code == kDnsFormatError || code == kDnsNotImplemented ||
                       code == kDnsBadVersion || RepeatsOpt(reply);
  // A plain query has come through where an extended one has not.
  if (of.query.extended ? refused : round_ > 0) ServerMemory::RefusedEdns(servers_[of.server]);
  if (of.query.extended && (refused || code == kDnsServerFailure)) {
    Begin(of.server, false);
    return Outcome::AskedAgain;
  }
  if (good && match == LookupQuery::Match::Full) Judge(reply);
  if (!decided_ && reply.flags.IsTruncated()) AskOverTcp(of.server);
  return Outcome::Useless;
}

// A truncated reply without what is looked for, or a dubious one: the whole one comes over TCP.
// Where that is closed or silent it stays so, and is not tried again. True when the server has
// replied.
bool NameQuestion::AskOverTcp(std::size_t server) {
  if (!withoutTcp_.insert(server).second) return false;
  DnsQuestion question = question_;
  question.id = static_cast<std::uint16_t>(RandomNumber());
  const auto query = ComposeQuery(question);
  ConnectionPlan plan;
  plan.host = servers_[server].host;
  plan.port = servers_[server].port;
  plan.wait = std::chrono::seconds(kTcpSeconds);
  plan.limit = std::min(deadline_, SecondsFromNow(kTcpSeconds));
  const DnsTcpResult result = netro::AskOverTcp(plan, *query, false, kReading, mark_);
  if (mark_.Cancelled()) Decide(kErrCancelled);
  if (!decided_ && IsShortage(result.code)) Decide(kErrNoBuffers);
  if (!decided_ && !result.message.empty()) Judge(result.reply);
  return !result.message.empty();
}

void NameQuestion::Judge(const DnsReply& reply) {
  const std::int32_t code = reply.flags.Code();
  if (code != kDnsSuccess && code != kDnsNameError) return;
  if (TakeRecords(reply)) return Decide(0);
  if (endless_) return;
  if (code == kDnsNameError) return Decide(kErrNoDnsEntries);
  if (!reply.flags.IsTruncated() && !IsReferral(reply)) Decide(kErrNoData);
}

// The records of the name asked for, or of the one that its aliases lead to. Others prove nothing.
bool NameQuestion::TakeRecords(const DnsReply& reply) {
  std::string name = name_;
  for (int aliases = 0; aliases < kMostAliases; ++aliases) {
    std::string next;
    std::vector<IpAddress> found;
    for (const DNSCLS& record : reply.records[DnsReply::Answer]) {
      if (!EqualsIgnoreCase(record.Query(), name)) continue;
      if (record.DataType() == TYPE_CNAME) next = record.Data();
      if (record.DataType() != question_.type || !IsUsable(record.Data())) continue;
      if (question_.type == TYPE_PTR) {
        answer_.text = record.Data();
        return true;
      }
      const IpAddress address = *ParseAddress(record.Data());
      if (std::ranges::find(found, address) == found.end()) found.push_back(address);
      if (found.size() == kMostAddresses) break;
    }
    if (!found.empty()) {
      answer_ = LookupAnswer::Of(std::move(found));
      return true;
    }
    if (next.empty()) return false;
    name = std::move(next);
  }
  endless_ = true;
  return false;
}

// What a server says ends up in the caller's texts and connections: a name that is none is not
// passed on, nor an address that means this host or everybody.
bool NameQuestion::IsUsable(const std::string& data) const {
  const auto address = ParseAddress(data);
  if (question_.type == TYPE_PTR) return IsHostName(data) && !address;
  return address && address->IsIPv6() == (question_.type == TYPE_AAAA) &&
         !address->IsUnspecified() && !address->IsBroadcast();
}

}  // namespace netro
