// The layers that belong to this computer and its network: adapter, route, neighbour.

#include <netro/NetBIOSCls.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "doctor/Checkup.h"
#include "terminal/TimeLimit.h"

namespace netro::tool {
namespace {

using enum FindingState;

std::string ListOf(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

/// RFC 3927, RFC 4291: what an adapter gives itself, and nobody else has to know.
bool IsLinkLocal(const std::string& address) {
  return address.starts_with("169.254.") || address.starts_with("fe80:");
}

bool Serves(const SystemAdapter& adapter, const Checkup& checkup) {
  const auto helps = [&](const std::string& address) {
    return !IsLinkLocal(address) || IsLinkLocal(checkup.host);
  };
  return adapter.isUp && adapter.isLoopback == checkup.isLocal &&
         std::ranges::any_of(adapter.addresses, helps);
}

/// What keeps an adapter from being of use, and what to do; the higher, the nearer it is to it.
struct Lack {
  int rank;
  std::string seen;
  std::string next;
};

Lack LackOf(const SystemAdapter& adapter) {
  const std::string& name = adapter.name;
  if (!adapter.isEnabled) return {1, name + " is switched off", "ip link set " + name + " up"};
  if (!adapter.isUp) {
    return {2, name + " has no link", "look at the cable or the Wi-Fi of " + name};
  }
  return {3, name + " has no address", "ask for one by DHCP, or ip address add ... dev " + name};
}

Lack WhatIsMissing(const Checkup& checkup) {
  Lack all{0, "", "look whether the system knows the hardware: ip link"};
  for (const SystemAdapter& adapter : checkup.adapters) {
    if (adapter.isLoopback != checkup.isLocal) continue;
    Lack lack = LackOf(adapter);
    all.seen += (all.seen.empty() ? "" : ", ") + lack.seen;
    if (lack.rank > all.rank) all.rank = lack.rank, all.next = std::move(lack.next);
  }
  if (all.seen.empty()) all.seen = "there is none but loopback";
  return all;
}

/// Where a host could be whose address is not known yet (RFC 5737, RFC 3849); nothing is sent
/// there.
constexpr std::string_view kAnywhere[] = {"198.51.100.1", "2001:db8::1"};

std::string RouteText(const SystemRoute& route) {
  std::string text = "from " + route.source;
  if (!route.adapter.empty()) text += " by " + route.adapter;
  if (route.hasGateway && !route.nextHop.empty()) text += " through " + route.nextHop;
  return text;
}

void CheckDefaultRoutes(Checkup& checkup) {
  std::string seen;
  for (const std::string_view address : kAnywhere) {
    SystemRoute route = FindRoute(std::string(address), checkup.adapters);
    const std::string family = address.find(':') == address.npos ? "IPv4" : "IPv6";
    seen += (seen.empty() ? "" : "; ") + family + ": " +
            (route.refusal.empty() ? RouteText(route) : route.refusal);
    if (route.refusal.empty()) checkup.routes.push_back(std::move(route));
  }
  const bool none = checkup.routes.empty();
  checkup.Add({"route", none ? Suspect : Fine, "the default route", seen,
               none ? "set a gateway: ip route add default via ..., or renew the DHCP lease" : ""});
}

}  // namespace

void CheckAdapter(Checkup& checkup) {
  checkup.adapters = ReadAdapters();
  std::vector<std::string> good;
  for (const SystemAdapter& adapter : checkup.adapters) {
    if (Serves(adapter, checkup)) good.push_back(adapter.name + " " + ListOf(adapter.addresses));
  }
  if (!good.empty()) return checkup.Add({"adapter", Fine, "the own adapters", ListOf(good), ""});
  const Lack lack = WhatIsMissing(checkup);
  const bool isSure =
      checkup.isLocal ||
      (checkup.isLiteral && !FindRoute(checkup.host, checkup.adapters).refusal.empty());
  checkup.Add({"adapter", isSure ? Broken : Suspect, "the own adapters", lack.seen, lack.next});
}

void CheckRoute(Checkup& checkup) {
  if (!checkup.isLiteral) {
    if (checkup.isLocal) {
      checkup.Add({"route", Skipped, "the default route", "nothing leaves this computer", ""});
      return;
    }
    return CheckDefaultRoutes(checkup);
  }
  SystemRoute route = FindRoute(checkup.host, checkup.adapters);
  const std::string tried = "a route to " + checkup.host;
  if (!route.refusal.empty()) {
    checkup.Add({"route", Broken, tried, route.refusal,
                 "look at ip route: a gateway is missing, or a network of the adapter"});
  } else {
    checkup.Add({"route", Fine, tried, RouteText(route), ""});
  }
  checkup.routes.push_back(std::move(route));
}

void CheckNextHop(Checkup& checkup, const SystemRoute& route) {
  if (route.nextHop.empty()) return;
  const auto [place, isNew] = checkup.neighbours.try_emplace(route.nextHop, false);
  if (isNew) {
    NetBIOSCls net;
    RunWithin(checkup.Limit(), [&, &answered = place->second] {
      answered = net.GetRemoteMACAddress(route.nextHop, ":");
    });
    if (place->second) {
      return checkup.Add({"neighbour", Fine, route.nextHop + " on " + route.adapter,
                          "it has " + net.MacAddress(), ""});
    }
  }
  if (place->second) return;
  const bool isIPv6 = route.nextHop.find(':') != std::string::npos;
  checkup.Add({"neighbour", checkup.isLiteral ? Broken : Suspect,
               route.nextHop + " on " + route.adapter,
               std::string("no answer by ") + (isIPv6 ? "neighbour discovery" : "ARP"),
               route.hasGateway ? "the gateway is off, or the address of it is wrong: ip route"
                                : "the host is off, or in another network than its address says"});
}

void CheckNeighbour(Checkup& checkup) {
  const std::size_t before = checkup.Findings().size();
  for (const SystemRoute& route : checkup.routes) CheckNextHop(checkup, route);
  if (checkup.Findings().size() == before) {
    checkup.Add({"neighbour", Skipped, "who takes the packets first",
                 checkup.isLocal ? "nothing leaves this computer"
                                 : "the route has no neighbour that could be asked",
                 ""});
  }
}

}  // namespace netro::tool
