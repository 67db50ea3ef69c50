// The way down. Each zone is below the one before, so the labels of a name end it; what servers may
// cost beside that is bounded by numbers, and by the time limit.

#include "dns/DnsTrace.h"

#include <netro/PublicAddress.h>

#include <algorithm>
#include <map>
#include <utility>

#include "dns/DnsSections.h"
#include "dns/QuestionName.h"
#include "dns/RootServers.h"
#include "terminal/HostAndPort.h"
#include "terminal/Stopwatch.h"
#include "terminal/Timer.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kNoEntries = 59;
constexpr std::int32_t kCancelled = 9999;
constexpr std::int32_t kTimedOut = 10002;
constexpr std::int32_t kNetworkUnreachable = 10051;
constexpr std::int32_t kNobodyKnows = 11002;
constexpr std::size_t kMostQueries = 100;
constexpr int kMostTries = 10;  // addresses of one zone
constexpr int kMostNames = 5;   // that are looked up for one zone
constexpr std::size_t kDeepest = 3;
constexpr std::int32_t kUsualSize = 1232;
constexpr std::int32_t kFormatError = 1;
constexpr std::int32_t kNotImplemented = 4;

/// A zone and who serves it.
struct Zone {
  std::string name = ".";
  std::vector<NameServer> servers;
  bool mayBePrivate = false;  // who told of the servers is not public itself
};

std::vector<DNSCLS> AnswersOf(const QueryDNSCLS& query) {
  std::vector<DNSCLS> records;
  ForEachRecord(query, kDnsSections[0], [&](const DNSCLS& record) { records.push_back(record); });
  return records;
}

bool IsIPv6(std::string_view address) { return address.find(':') != address.npos; }

class Tracer {
 public:
  Tracer(DnsTrace& trace, const Batch& batch) : trace_(trace), batch_(batch) {
    Prepare(query_, trace.request);
    query_.UseRecursion(false);
    query_.RetryCount(2);
    query_.RetryPauseMilliSeconds(0);
    if (!trace.request.server.empty()) {
      root_ = {".", {{"", {trace.request.server}}}, true};
    } else {
      root_ = {".", RootServers(), false};
    }
  }

  void Run() {
    const auto limit = static_cast<std::int32_t>(trace_.request.timeout * 1000);
    const Timer timer(limit, [this] { Expire(); });
    trace_.end = GoDown(trace_.name, trace_.request.type, 0);
    const std::int32_t errors[] = {0, 0, kNoEntries, isNoName_ ? kNoEntries : kNobodyKnows,
                                   late_ ? kTimedOut : kCancelled};
    trace_.errorNumber = errors[static_cast<std::size_t>(trace_.end)];
    trace_.errorText = query_.TranslateDNSResult(trace_.errorNumber);
    if (trace_.end != TraceEnd::DeadEnd && trace_.end != TraceEnd::Stopped) {
      trace_.answer = std::move(answer_);
    }
  }

 private:
  bool IsStopped() const { return late_ || batch_.IsStopped(); }

  void Expire() {
    late_ = true;
    query_.StopWaiting();
  }

  /// answer_ and lastServer_ are the last server's then.
  TraceEnd GoDown(const std::string& name, QueryEnum type, std::size_t depth) {
    Zone zone = root_;
    for (;;) {
      const auto reply = AskZone(zone, {name, type, zone.name}, depth);
      if (!reply) return IsStopped() ? TraceEnd::Stopped : TraceEnd::DeadEnd;
      switch (reply->kind) {
        case ReplyKind::Answer:
          return TraceEnd::Answer;
        case ReplyKind::NoRecord:
          return TraceEnd::NoRecord;
        case ReplyKind::NoName:
          return TraceEnd::NoName;
        default:
          zone = {reply->zone, reply->servers, !IsPublicAddress(lastServer_)};
      }
    }
  }

  /// The first reply that is of use; servers with addresses come first.
  std::optional<ZoneReply> AskZone(const Zone& zone, const ZoneQuestion& question,
                                   std::size_t depth) {
    int tries = 0;
    for (const bool wantV6 : {false, true}) {
      for (const NameServer& server : zone.servers) {
        for (const std::string& address : server.addresses) {
          if (IsIPv6(address) != wantV6) continue;
          if (auto reply = Try(zone, question, depth, server.name, address, tries)) return reply;
        }
      }
    }
    int names = 0;
    for (const NameServer& server : zone.servers) {
      if (!server.addresses.empty() || names == kMostNames) continue;
      ++names;
      for (const std::string& address : LookUp(zone, server.name, depth)) {
        if (auto reply = Try(zone, question, depth, server.name, address, tries)) return reply;
      }
    }
    return std::nullopt;
  }

  std::optional<ZoneReply> Try(const Zone& zone, const ZoneQuestion& question, std::size_t depth,
                               const std::string& server, const std::string& address, int& tries) {
    if (IsStopped() || isNoName_ || tries == kMostTries || unreachable_[IsIPv6(address)])
      return std::nullopt;
    if (trace_.steps.size() == kMostQueries) {
      Note("no more than " + std::to_string(kMostQueries) + " queries are made");
      return std::nullopt;
    }
    if (!zone.mayBePrivate && !IsPublicAddress(address)) {
      Note(server + " is said to be " + address + ", which is not public: not asked");
      return std::nullopt;
    }
    ++tries;
    TraceStep& step = trace_.steps.emplace_back();
    step.question = question;
    step.depth = depth;
    step.serverName = server;
    Ask(step, address);
    if (step.reply.kind == ReplyKind::Useless) return std::nullopt;
    lastServer_ = address;
    answer_ = AnswersOf(query_);
    return step.reply;
  }

  void Ask(TraceStep& step, const std::string& address) {
    const Stopwatch watch;
    step.server = HostAndPortText(address, trace_.request.port);
    query_.Domain(step.question.name);
    query_.QueryType(step.question.type);
    query_.DNSServer(address);
    query_.UDPSize(trace_.request.udpSize != 0 ? trace_.request.udpSize : kUsualSize);
    query_.QueryDNS();
    const bool refusesEdns =
        query_.ReplyCode() == kFormatError || query_.ReplyCode() == kNotImplemented;
    if (refusesEdns && trace_.request.udpSize == 0 && !trace_.request.dnssec) {
      query_.UDPSize(0);
      query_.QueryDNS();
    }
    isNoName_ = query_.OutBuffer().empty() && query_.LastErr() == kNoEntries;
    unreachable_[IsIPv6(address)] = query_.LastErr() == kNetworkUnreachable;
    step.seconds = watch.Seconds();
    step.overTcp = trace_.request.tcp || query_.IsOverTCP();
    step.header = HeaderOf(query_);
    step.reply = ReadZoneReply(query_, step.question);
  }

  /// The addresses of a server that was named without one. Nothing for a server whose name only its
  /// own zone knows, or that is being looked up already.
  std::vector<std::string> LookUp(const Zone& zone, const std::string& server, std::size_t depth) {
    if (IsStopped()) return {};
    if (IsWithin(server, zone.name)) return Skip(server + " is named without an address");
    if (depth == kDeepest) return Skip(server + " is not looked up: too many are already");
    const auto [known, isNew] = known_.try_emplace(server);
    if (!isNew) return known->second;
    std::vector<std::string> addresses;
    for (const QueryEnum type : {TYPE_A, TYPE_AAAA}) {
      if (GoDown(server, type, depth + 1) == TraceEnd::Answer) {
        addresses = AddressesOf(server, answer_);
      }
      if (!addresses.empty()) break;
    }
    if (IsPublicAddress(lastServer_))
      std::erase_if(addresses, [&](const std::string& address) {
        if (IsPublicAddress(address)) return false;
        Note(server + " is said to be " + address + ", which is not public: not asked");
        return true;
      });
    if (addresses.empty()) Note(server + " has no address that could be found");
    return known_[server] = addresses;
  }

  std::vector<std::string> Skip(const std::string& note) {
    Note(note);
    return {};
  }

  void Note(const std::string& note) {
    if (std::ranges::find(trace_.notes, note) == trace_.notes.end()) trace_.notes.push_back(note);
  }

  DnsTrace& trace_;
  const Batch& batch_;
  QueryDNSCLS query_;
  Zone root_;
  bool late_ = false;
  bool isNoName_ = false;     // what is to be asked for
  bool unreachable_[2] = {};  // IPv4, IPv6
  std::map<std::string, std::vector<std::string>> known_;
  std::vector<DNSCLS> answer_;
  std::string lastServer_;
};

}  // namespace

DnsTrace::DnsTrace(DnsRequest toAsk)
    : request(std::move(toAsk)),
      name(ComparedName(request.type == TYPE_PTR ? ReverseName(request.name).value_or(request.name)
                                                 : request.name)) {
  QueryDNSCLS texts;
  errorNumber = kCancelled;
  errorText = texts.TranslateDNSResult(kCancelled);
}

void Follow(DnsTrace& trace, const Batch& batch) {
  const Stopwatch watch;
  Tracer(trace, batch).Run();
  trace.seconds = watch.Seconds();
}

}  // namespace netro::tool
