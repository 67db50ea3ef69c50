#include "dns/ServerLookup.h"

#include <algorithm>
#include <charconv>

#include "dns/DnsResult.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr int kRounds = 3;
constexpr int kMostAliases = 16;
constexpr std::chrono::milliseconds kUdpWait(1500);
constexpr std::int32_t kTcpSeconds = 3;

// "host:port" or "host".
bool ParseServer(const std::string& text, DnsServer& server) {
  const std::size_t colon = text.find(':');
  server.host = Trim(text.substr(0, colon));
  if (server.host.empty() || HasControl(text)) return false;
  if (colon == std::string::npos) return true;
  const std::string port = Trim(text.substr(colon + 1));
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), server.port);
  return error == std::errc() && end == port.data() + port.size() && server.port >= 1 &&
         server.port <= 65535;
}

std::string WithoutLastDot(std::string name) {
  if (name.ends_with('.')) name.pop_back();
  return name;
}

// What a server's reply says about the name.
struct Reply {
  enum Kind { Found, NoSuchName, Silent, Useless, Cancelled } kind = Useless;
  std::string text;
};

class Lookup {
 public:
  Lookup(DnsQuestion question, Bytes query, const CancelMark& mark, TimePoint deadline)
      : question_(std::move(question)),
        name_(WithoutLastDot(QuestionName(question_))),
        query_(std::move(query)),
        mark_(mark),
        deadline_(deadline) {}

  Reply Ask(const DnsServer& server) {
    Bytes message;
    const std::int32_t error = AskOverUdp(server, query_, mark_, kUdpWait, deadline_, message);
    if (error != 0) return {KindOf(error), {}};
    DnsReply reply;
    const bool good = ReadReply(message, reply);
    Reply judged = good ? Judge(reply) : Reply{};
    if (judged.kind != Reply::Found && reply.flags.IsTruncated()) return AskAgain(server);
    return judged;
  }

 private:
  // A truncated reply without what is looked for: the whole one comes over TCP.
  Reply AskAgain(const DnsServer& server) {
    ConnectionPlan plan;
    plan.host = server.host;
    plan.port = server.port;
    plan.seconds = kTcpSeconds;
    plan.limit = std::min(deadline_, SecondsFromNow(kTcpSeconds));
    const DnsTcpResult result = AskOverTcp(plan, query_, false, {}, mark_);
    if (!result.message.empty()) return Judge(result.reply);
    // Where TCP is closed or silent it stays so: such a server is not asked again.
    return {mark_.Cancelled() ? Reply::Cancelled : Reply::Useless, {}};
  }

  Reply::Kind KindOf(std::int32_t error) const {
    if (mark_.Cancelled()) return Reply::Cancelled;
    return error == kErrTimedOut ? Reply::Silent : Reply::Useless;
  }

  Reply Judge(const DnsReply& reply) const {
    const std::int32_t code = reply.flags.Code();
    if (code != kDnsSuccess && code != kDnsNameError) return {};
    if (std::string found = Find(reply.records[DnsReply::Answer]); !found.empty()) {
      return {Reply::Found, std::move(found)};
    }
    return {IsReferral(reply) ? Reply::Useless : Reply::NoSuchName, {}};
  }

  // The record of the name asked for, or of the one that its aliases lead to. Others prove nothing.
  std::string Find(const std::deque<DNSCLS>& answers) const {
    std::string name = name_;
    for (int aliases = 0; aliases < kMostAliases; ++aliases) {
      std::string next;
      for (const DNSCLS& record : answers) {
        if (!EqualsIgnoreCase(record.Query(), name)) continue;
        if (record.DataType() == question_.type && IsUsable(record.Data())) return record.Data();
        if (record.DataType() == TYPE_CNAME) next = record.Data();
      }
      if (next.empty()) break;
      name = std::move(next);
    }
    return {};
  }

  // A server that does not look further names others instead of an answer.
  static bool IsReferral(const DnsReply& reply) {
    const auto& authority = reply.records[DnsReply::Authority];
    return reply.flags.Code() == kDnsSuccess && !reply.flags.IsAuthoritative() &&
           !reply.flags.IsRecursionAvailable() &&
           std::ranges::none_of(authority,
                                [](const DNSCLS& record) { return record.DataType() == TYPE_SOA; });
  }

  // What a server says ends up in the caller's texts and connections: a name that is none is not
  // passed on, nor an address that means this host or everybody.
  bool IsUsable(const std::string& data) const {
    return question_.type == TYPE_PTR ? IsHostName(data) && !ParseDotted(data)
                                      : data != "255.255.255.255" && data != "0.0.0.0";
  }

  DnsQuestion question_;
  std::string name_;  // as it stands in the question
  Bytes query_;
  const CancelMark& mark_;
  TimePoint deadline_;
};

}  // namespace

std::optional<std::vector<DnsServer>> ParseServerList(const std::string& list) {
  std::vector<DnsServer> servers;
  for (const std::string& element : Split(list, ',')) {
    const std::string text = Trim(element);
    if (text.empty()) continue;
    if (!ParseServer(text, servers.emplace_back())) return std::nullopt;
  }
  return servers;
}

LookupAnswer AskServers(const std::vector<DnsServer>& servers, const std::string& address,
                        const CancelMark& mark, TimePoint deadline) {
  DnsQuestion question;
  question.domain = address;
  if (ParseDotted(address)) question.type = TYPE_PTR;
  const auto query = ComposeQuery(question);
  if (!query) return {{}, kErrNoDnsEntries};

  Lookup lookup(question, *query, mark, deadline);
  std::vector<DnsServer> left = servers;
  for (int round = 0; round < kRounds && !left.empty(); ++round) {
    std::vector<DnsServer> silent;
    for (const DnsServer& server : left) {
      Reply reply = lookup.Ask(server);
      if (reply.kind == Reply::Found) return {std::move(reply.text)};
      if (reply.kind == Reply::NoSuchName) return {{}, kErrNoDnsEntries};
      if (reply.kind == Reply::Cancelled) return {{}, kErrCancelled};
      if (mark.Expired(deadline)) return {{}, kErrTimedOut};
      if (reply.kind == Reply::Silent) silent.push_back(server);
    }
    left = std::move(silent);
  }
  return {{}, kErrNoDnsEntries};
}

}  // namespace netro
