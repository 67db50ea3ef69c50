#include "dns/AddressOrder.h"

#include <algorithm>
#include <tuple>

#include "platform/Sockets.h"

namespace netro {
namespace {

// The default policy table (RFC 6724, section 2.1). IPv4 stands in it as ::ffff:0:0/96.
struct Policy {
  const char* prefix;
  int bits;
  int precedence;
  int label;
};

constexpr Policy kIPv4Policy{"", 0, 35, 4};
constexpr Policy kPolicies[] = {
    {"::1", 128, 50, 0},   {"2001::", 32, 5, 5}, {"2002::", 16, 30, 2}, {"3ffe::", 16, 1, 12},
    {"fec0::", 10, 1, 11}, {"fc00::", 7, 3, 13}, {"::", 0, 40, 1},
};

bool HasPrefix(const IpAddress& address, const IpAddress& prefix, int bits) {
  const auto a = address.Bytes();
  const auto p = prefix.Bytes();
  const auto whole = static_cast<std::size_t>(bits / 8);
  if (!std::equal(p.begin(), p.begin() + bits / 8, a.begin())) return false;
  return bits % 8 == 0 || ((a[whole] ^ p[whole]) & (0xFF00 >> bits % 8) & 0xFF) == 0;
}

const Policy& PolicyOf(const IpAddress& address) {
  if (!address.IsIPv6()) return kIPv4Policy;
  return *std::ranges::find_if(kPolicies, [&](const Policy& policy) {
    return HasPrefix(address, *ParseAddress(policy.prefix), policy.bits);
  });
}

// Section 3.1; loopback counts as link-local.
enum Scope { kLink = 2, kSite = 5, kGlobal = 14 };

Scope ScopeOf(const IpAddress& address) {
  const auto bytes = address.Bytes();
  if (address.IsLoopback() || address.IsLinkLocal()) return kLink;
  if (address.IsIPv4()) return bytes[0] == 169 && bytes[1] == 254 ? kLink : kGlobal;
  return bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0xC0 ? kSite : kGlobal;
}

// What the rules compare, the better the smaller: 1 usable, 2 same scope, 5 same label, 6 higher
// precedence, 8 smaller scope.
auto Rank(const IpAddress& address) {
  const IpAddress source = SourceAddress(address);
  if (source.IsNone()) return std::tuple(1, 1, 1, 0, 0);
  const Policy& policy = PolicyOf(address);
  return std::tuple(0, ScopeOf(source) == ScopeOf(address) ? 0 : 1,
                    PolicyOf(source).label == policy.label ? 0 : 1, -policy.precedence,
                    static_cast<int>(ScopeOf(address)));
}

std::vector<IpAddress> InTurn(const std::vector<IpAddress>& ordered) {
  std::vector<IpAddress> first;
  std::vector<IpAddress> second;
  for (const IpAddress& address : ordered) {
    (address.Family() == ordered.front().Family() ? first : second).push_back(address);
  }
  std::vector<IpAddress> mixed;
  for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i) {
    if (i < first.size()) mixed.push_back(first[i]);
    if (i < second.size()) mixed.push_back(second[i]);
  }
  return mixed;
}

}  // namespace

std::vector<IpAddress> OrderAddresses(std::vector<IpAddress> addresses) {
  std::vector<std::pair<decltype(Rank(IpAddress())), IpAddress>> ranked;
  for (const IpAddress& address : addresses) ranked.emplace_back(Rank(address), address);
  std::ranges::stable_sort(ranked, {}, &decltype(ranked)::value_type::first);
  std::ranges::transform(ranked, addresses.begin(), &decltype(ranked)::value_type::second);
  return InTurn(addresses);
}

}  // namespace netro
