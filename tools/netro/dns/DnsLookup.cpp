// One question of "netro dns", and its outcome.

#include "dns/DnsLookup.h"

#include <netro/FindDNSCLS.h>
#include <netro/RecordText.h>

#include <iterator>
#include <utility>

#include "dns/QuestionName.h"
#include "terminal/HostAndPort.h"
#include "terminal/Stopwatch.h"
#include "terminal/Timer.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kCancelled = 9999;
constexpr std::int32_t kTimedOut = 10002;
constexpr std::int32_t kFirstSocketError = 10000;
constexpr std::size_t kHeaderSize = 12;
constexpr std::int32_t kRandomId = -1;

/// Goes through the servers.
class Resolver {
 public:
  Resolver(DnsLookup& lookup, const Batch& batch)
      : request_(lookup.request), query_(lookup.query), result_(lookup.result), batch_(batch) {}

  void Run() {
    std::optional<Timer> limit;
    if (request_.timeout > 0)
      limit.emplace(static_cast<std::int32_t>(request_.timeout * 1000), [this] { Expire(); });
    AskServers();
    // A query that is stopped between two tries ends with the result of the first.
    const bool unfinished = result_.errorNumber == kCancelled || result_.errorNumber == kTimedOut;
    if (IsStopped() && unfinished) SetError(late_ ? kTimedOut : kCancelled);
  }

 private:
  bool IsStopped() const { return late_ || batch_.IsStopped(); }

  void Expire() {
    late_ = true;
    query_.StopWaiting();
  }

  void SetError(std::int32_t number) {
    result_.errorNumber = number;
    result_.errorText = query_.TranslateDNSResult(number);
  }

  void AskServers() {
    for (const std::string& server : Servers()) {
      if (!result_.server.empty()) result_.silentServers.push_back(result_.server);
      result_.server = server.empty() ? "" : HostAndPortText(server, request_.port);
      query_.DNSServer(server);
      Ask();
      if (IsStopped() || result_.errorNumber < kFirstSocketError) break;
    }
  }

  /// Without any, the library's answer to an empty name tells that there is none.
  std::vector<std::string> Servers() const {
    if (!request_.server.empty()) return {request_.server};
    const FindDNSCLS system;
    std::vector<std::string> servers = system.Servers();
    servers.resize(system.Count() > 0 ? static_cast<std::size_t>(system.Count()) : 1);
    return servers;
  }

  void Ask() {
    result_.errorNumber = request_.zone ? query_.QueryZone() : query_.QueryDNS();
    result_.errorText = query_.LastErrMsg();
    result_.overTcp = request_.tcp || query_.IsOverTCP();
    result_.wasTruncated = !request_.tcp && query_.IsOverTCP();
  }

  const DnsRequest& request_;
  QueryDNSCLS& query_;
  DnsResult& result_;
  const Batch& batch_;
  bool late_ = false;
};

std::string StatusName(std::int32_t code) {
  constexpr const char* kNames[] = {"NOERROR", "FORMERR", "SERVFAIL", "NXDOMAIN",
                                    "NOTIMP",  "REFUSED", "YXDOMAIN", "YXRRSET",
                                    "NXRRSET", "NOTAUTH", "NOTZONE"};
  constexpr std::int32_t kBadVersion = 16;
  if (code == kBadVersion) return "BADVERS";
  const auto index = static_cast<std::size_t>(code);
  return index < std::size(kNames) ? kNames[index] : "RESERVED" + std::to_string(code);
}

}  // namespace

void Prepare(QueryDNSCLS& query, const DnsRequest& request) {
  query.Domain(request.name);
  query.QueryType(request.type);
  query.UseRecursion(request.recursion);
  query.UseUDP(!request.tcp);
  query.FollowTruncation(true);
  query.EscapeNames(true);
  query.QueryID(kRandomId);
  query.UDPSize(request.udpSize);
  query.DNSSECOK(request.dnssec);
  query.DNSPort(request.port);
  query.ProxyType(request.proxyType);
  query.ProxyURL(request.proxy.host);
  query.ProxyPort(request.proxy.port);
  query.ProxyUser(request.proxy.user);
  query.ProxyPassword(request.proxy.password);
  query.ProxyUseRemoteDNS(request.proxy.remoteDns);
}

std::optional<ReplyHeader> HeaderOf(const QueryDNSCLS& query) {
  const std::string& message = query.InBuffer();
  if (message.size() < kHeaderSize) return std::nullopt;
  struct Flag {
    std::uint32_t bit;
    const char* name;
  };
  constexpr Flag kFlags[] = {{0x400, "aa"}, {0x200, "tc"}, {0x100, "rd"},
                             {0x80, "ra"},  {0x20, "ad"},  {0x10, "cd"}};
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(message[i]); };
  const std::uint32_t bits = byte(2) * 256U + byte(3);
  ReplyHeader header;
  header.status = StatusName(query.ReplyCode());
  for (const Flag& flag : kFlags) {
    if ((bits & flag.bit) != 0) header.flags.emplace_back(flag.name);
  }
  return header;
}

DnsLookup::DnsLookup(DnsRequest toAsk) : request(std::move(toAsk)) {
  Prepare(query, request);
  result.errorNumber = kCancelled;
  result.errorText = query.TranslateDNSResult(kCancelled);
}

void Resolve(DnsLookup& lookup, const Batch& batch) {
  const Stopwatch watch;
  Resolver(lookup, batch).Run();
  lookup.result.seconds = watch.Seconds();
  lookup.result.header = HeaderOf(lookup.query);
}

std::string QuestionName(const QueryDNSCLS& query) {
  const std::string& sent = query.OutBuffer();
  const std::size_t length = query.IsOverTCP() ? 2 : 0;
  if (sent.size() <= length + kHeaderSize) return RecordNameText(query.Domain());
  return QuestionNameText(std::string_view(sent).substr(length));
}

}  // namespace netro::tool
