// The layers of names: each resolver by itself, the name as all programs look it up, and the route
// to each address that was found.

#include <netro/FindDNSCLS.h>
#include <netro/ICMPCls.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SocketCls.h>

#include <algorithm>

#include "doctor/Checkup.h"
#include "terminal/FailureText.h"
#include "terminal/HostAndPort.h"
#include "terminal/TimeLimit.h"

namespace netro::tool {
namespace {

using enum FindingState;

std::vector<Server> ResolversOf(const DoctorRequest& request) {
  if (!request.resolvers.empty()) return request.resolvers;
  std::vector<Server> resolvers;
  const FindDNSCLS system;
  for (const std::string& server : system.Servers()) {
    if (!server.empty()) resolvers.push_back({server, 53});
  }
  return resolvers;
}

struct Reply {
  std::int32_t code = -1;  // none came
  std::int32_t error = 0;
  std::string text;
};

Reply AskResolver(const Checkup& checkup, const Server& resolver, const std::string& name,
                  QueryEnum type) {
  QueryDNSCLS dns;
  dns.DNSServer(resolver.host);
  dns.DNSPort(resolver.port);
  dns.Domain(name);
  dns.QueryType(type);
  dns.QueryID(-1);
  RunWithin(checkup.Limit(), [&dns] { (void)dns.QueryDNS(); });
  return {dns.ReplyCode(), dns.LastErr(), dns.LastErrMsg()};
}

constexpr std::int32_t kServerFailure = 2;
constexpr std::int32_t kRefused = 5;

/// A server that cannot find out about this name may be well: then it knows the root.
bool IsWell(const Checkup& checkup, const Server& resolver, const Reply& reply) {
  if (reply.code != kServerFailure) return reply.code >= 0 && reply.code != kRefused;
  return AskResolver(checkup, resolver, ".", TYPE_NS).code == 0;
}

std::string WhatItSaid(const Reply& reply) {
  if (reply.code < 0) return FailureText("no reply", reply.error, reply.text);
  if (reply.code == kServerFailure) return "it fails (SERVFAIL)";
  if (reply.code == kRefused) return "it refuses to answer (REFUSED)";
  return reply.code == 3 ? "it answers: no such name" : "it answers";
}

Finding Examine(const Checkup& checkup, const Server& resolver) {
  const Reply reply = AskResolver(checkup, resolver, checkup.host, TYPE_A);
  Finding finding{"resolver", Fine, HostAndPortText(resolver.host, resolver.port) + " by UDP",
                  WhatItSaid(reply), ""};
  if (!IsWell(checkup, resolver, reply)) {
    finding.state = Partly;
    finding.next = "take it out of the list (/etc/resolv.conf, --dns), or have it repaired";
  }
  return finding;
}

std::string LookupAdvice(std::int32_t error) {
  constexpr std::int32_t kNoSuchHost = 59, kNoData = 11004;
  if (error == kNoSuchHost) return "look at the spelling; netro dns tells what the zone has";
  if (error == kNoData) return "the name has no address of this family; leave out -4 or -6";
  return "the resolvers do not know: netro dns asks one of them alone";
}

/// What no single host has: 0.0.0.0 and multicast addresses.
bool IsNoHost(const std::string& address) {
  if (address.find(':') != address.npos) return address == "::" || address.starts_with("ff");
  const std::int32_t type = ICMPCls().GetIPType(address);
  return type < 1 || type > 4;
}

bool IsIPv6(const std::string& address) { return address.find(':') != address.npos; }

void TellUnreachable(Checkup& checkup, const std::string& address, const std::string& refusal) {
  const std::string tried = "a route to " + address;
  if (checkup.addresses.empty()) {
    return checkup.Add({"route", Broken, tried, refusal,
                        "look at ip route: a gateway is missing, or a network of the adapter"});
  }
  const bool isOwnFamily = std::ranges::any_of(checkup.addresses, [&](const std::string& other) {
    return IsIPv6(other) == IsIPv6(address);
  });
  checkup.Add({"address", isOwnFamily ? Partly : Skipped, tried,
               refusal + (isOwnFamily ? "" : "; this computer does without the family"),
               isOwnFamily ? "look at ip route" : ""});
}

}  // namespace

void CheckResolver(Checkup& checkup) {
  if (checkup.isLiteral || checkup.isLocal) {
    return checkup.Add({"resolver", Skipped, "the DNS servers",
                        checkup.host + (checkup.isLiteral ? " is an address" : " is known without"),
                        ""});
  }
  const std::vector<Server> resolvers = ResolversOf(checkup.request);
  if (resolvers.empty()) {
    return checkup.Add({"resolver", Suspect, "the DNS servers", "none is set",
                        "name one in /etc/resolv.conf, or renew the DHCP lease"});
  }
  std::vector<Finding> findings;
  for (const Server& resolver : resolvers) findings.push_back(Examine(checkup, resolver));
  const bool allDead =
      std::ranges::all_of(findings, [](const Finding& finding) { return finding.state == Partly; });
  for (Finding& finding : findings) {
    if (allDead) finding.state = Suspect;  // the hosts file may know the name
    checkup.Add(std::move(finding));
  }
}

void CheckName(Checkup& checkup) {
  if (checkup.isLiteral) {
    checkup.addresses = {checkup.host};
    return checkup.Add({"name", Skipped, checkup.host, "it is an address", ""});
  }
  SocketCls socket;
  socket.DNSURL(checkup.request.options.dns);
  socket.AddressPreference(checkup.request.options.preference);
  RunWithin(checkup.Limit(), [&] { checkup.addresses = socket.DNSLookupAll(checkup.host); });
  std::string seen;
  for (const std::string& address : checkup.addresses) seen += (seen.empty() ? "" : ", ") + address;
  const std::int32_t error = socket.DNSLastErr();
  constexpr std::int32_t kNoSuchHost = 59, kNoData = 11004;
  if (checkup.addresses.empty()) {
    Finding finding{"name", Broken, checkup.host,
                    FailureText("no address", error, socket.DNSLastErrMsg()), LookupAdvice(error)};
    finding.isSilent = error != kNoSuchHost && error != kNoData;
    return checkup.Add(std::move(finding));
  }
  if (std::ranges::all_of(checkup.addresses, IsNoHost)) {
    return checkup.Add({"name", Broken, checkup.host,
                        "it stands for " + seen + ", which no host has",
                        "the resolver blocks the name; ask another one with --dns"});
  }
  checkup.Add({"name", Fine, checkup.host, seen, ""});
}

void CheckAddress(Checkup& checkup) {
  if (checkup.isLiteral) {
    return checkup.Add({"address", Skipped, checkup.host, "it is the only one", ""});
  }
  std::vector<SystemRoute> good, bad;
  for (const std::string& address : checkup.addresses) {
    SystemRoute route = FindRoute(address, checkup.adapters);
    (route.refusal.empty() ? good : bad).push_back(std::move(route));
  }
  checkup.addresses.clear();
  for (const SystemRoute& route : good) {
    checkup.addresses.push_back(route.destination);
    checkup.Add({"address", Fine, "a route to " + route.destination, "from " + route.source, ""});
    CheckNextHop(checkup, route);
  }
  for (const SystemRoute& route : bad) TellUnreachable(checkup, route.destination, route.refusal);
}

}  // namespace netro::tool
