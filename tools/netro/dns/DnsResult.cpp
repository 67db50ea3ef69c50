// The outcome of a query with QueryDNSCLS.

#include "dns/DnsResult.h"

#include <netro/FindDNSCLS.h>

#include <atomic>
#include <chrono>
#include <iterator>

#include "dns/RecordReader.h"
#include "dns/ZoneText.h"
#include "terminal/Interrupt.h"
#include "terminal/Timer.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kCancelled = 9999;
constexpr std::int32_t kTimedOut = 10002;
constexpr std::int32_t kFirstSocketError = 10000;
constexpr std::size_t kHeaderSize = 12;

/// Goes through the servers, and from UDP to TCP. Between two calls it remembers that it was told
/// to stop; StopWaiting may come from a signal handler.
class Resolver {
 public:
  Resolver(QueryDNSCLS& query, const DnsRequest& request) : query_(query), request_(request) {}

  DnsResult Run() {
    for (const std::string& server : Servers()) {
      if (!result_.server.empty()) result_.silentServers.push_back(result_.server);
      result_.server = server.empty() ? "" : server + ":" + std::to_string(request_.port);
      query_.DNSServer(server);
      Ask();
      if (stopped_ || result_.errorNumber < kFirstSocketError) break;
    }
    return result_;
  }

  void StopWaiting() {
    stopped_ = true;
    query_.StopWaiting();
  }
  bool WasStopped() const { return stopped_; }

 private:
  /// Without any, the library's answer to an empty name tells that there is none.
  std::vector<std::string> Servers() const {
    if (!request_.server.empty()) return {request_.server};
    const FindDNSCLS system;
    std::vector<std::string> servers = system.Servers();
    servers.resize(system.Count() > 0 ? static_cast<std::size_t>(system.Count()) : 1);
    return servers;
  }

  void Ask() {
    AskOver(request_.tcp);
    if (request_.tcp || stopped_ || !query_.IsTruncated()) return;
    result_.wasTruncated = true;
    AskOver(true);
  }

  void AskOver(bool tcp) {
    result_.overTcp = tcp;
    query_.UseUDP(!tcp);
    result_.errorNumber = request_.zone ? query_.QueryZone() : query_.QueryDNS();
    result_.errorText = query_.LastErrMsg();
  }

  QueryDNSCLS& query_;
  const DnsRequest& request_;
  DnsResult result_;
  std::atomic<bool> stopped_ = false;
};

void Prepare(QueryDNSCLS& query, const DnsRequest& request) {
  query.Domain(request.name);
  query.QueryType(request.type);
  query.UseRecursion(request.recursion);
  query.DNSPort(request.port);
  query.ProxyType(request.proxyType);
  query.ProxyURL(request.proxy.host);
  query.ProxyPort(request.proxy.port);
  query.ProxyUser(request.proxy.user);
  query.ProxyPassword(request.proxy.password);
  query.ProxyUseRemoteDNS(request.proxy.remoteDns);
}

std::string StatusName(std::uint32_t code) {
  constexpr const char* kNames[] = {"NOERROR", "FORMERR", "SERVFAIL", "NXDOMAIN",
                                    "NOTIMP",  "REFUSED", "YXDOMAIN", "YXRRSET",
                                    "NXRRSET", "NOTAUTH", "NOTZONE"};
  return code < std::size(kNames) ? kNames[code] : "RESERVED" + std::to_string(code);
}

std::optional<ReplyHeader> HeaderOf(const std::string& message) {
  if (message.size() < kHeaderSize) return std::nullopt;
  struct Flag {
    std::uint32_t bit;
    const char* name;
  };
  constexpr Flag kFlags[] = {{0x400, "aa"}, {0x200, "tc"}, {0x100, "rd"},
                             {0x80, "ra"},  {0x20, "ad"},  {0x10, "cd"}};
  RecordReader reader(message);
  reader.Take(2);
  const std::uint32_t bits = reader.Number(2);
  ReplyHeader header;
  header.status = StatusName(bits & 15);
  for (const Flag& flag : kFlags) {
    if ((bits & flag.bit) != 0) header.flags.emplace_back(flag.name);
  }
  return header;
}

}  // namespace

DnsResult Resolve(QueryDNSCLS& query, const DnsRequest& request) {
  Prepare(query, request);
  Resolver resolver(query, request);
  const auto begin = std::chrono::steady_clock::now();
  bool late = false;
  DnsResult result;
  {
    const InterruptGuard guard(resolver);
    const auto expire = [&] {
      late = true;
      resolver.StopWaiting();
    };
    std::optional<Timer> limit;
    if (request.timeout > 0) limit.emplace(request.timeout * 1000, expire);
    result = resolver.Run();
  }
  // A query that is stopped between two tries ends with the result of the first.
  const bool unfinished = result.errorNumber == kCancelled || result.errorNumber == kTimedOut;
  if (resolver.WasStopped() && unfinished) {
    result.errorNumber = late ? kTimedOut : kCancelled;
    result.errorText = query.TranslateDNSResult(result.errorNumber);
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  result.header = HeaderOf(query.InBuffer());
  return result;
}

std::string QuestionName(const QueryDNSCLS& query) {
  const std::string& sent = query.OutBuffer();
  const std::size_t length = query.UseUDP() ? 0 : 2;
  if (sent.size() <= length + kHeaderSize) {
    std::string_view name = query.Domain();
    name.remove_suffix(name.ends_with('.') ? 1 : 0);
    return ZoneName(name);
  }
  return RecordReader(std::string_view(sent).substr(length + kHeaderSize)).Name();
}

}  // namespace netro::tool
