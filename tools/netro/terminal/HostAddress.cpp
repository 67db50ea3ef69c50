// The address that a user means by a host.

#include "terminal/HostAddress.h"

#include <netdb.h>
#include <netro/SocketCls.h>
#include <sys/socket.h>

#include <memory>
#include <string_view>

#include "terminal/Command.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kNoSuchHost = 59;

bool IsIPv6(const std::string& address) { return address.find(':') != address.npos; }

bool IsOfSingleHost(const ICMPCls& icmp, const std::string& address) {
  constexpr std::int32_t kPublic = 1;
  constexpr std::int32_t kLinkLocal = 4;  // between them: private, loopback
  if (IsIPv6(address)) return address != "::" && !address.starts_with("ff");
  const std::int32_t type = icmp.GetIPType(address);
  return type >= kPublic && type <= kLinkLocal;
}

HostAddress LookUp(ICMPCls& names, const std::string& name) {
  const std::string address = names.DNSLookup(name);
  if (names.DNSLastErr() != 0) return {"", names.DNSLastErr(), names.DNSLastErrMsg()};
  if (!IsOfSingleHost(names, address)) {
    return {"", kNoSuchHost, "it stands for " + address + ", which is not a single host"};
  }
  return {address, 0, ""};
}

/// As those who answer are written: "127.1" is 127.0.0.1, and "::FFFF:127.0.0.1" too.
std::string Usual(const std::string& address) {
  constexpr std::string_view kMapped = "::ffff:";
  if (IsIPv6(address)) {
    const std::string usual = UsualIPv6(address).value_or(address);
    const bool mapped = usual.starts_with(kMapped) && usual.find('.') != usual.npos;
    return mapped ? usual.substr(kMapped.size()) : usual;
  }
  const SocketCls format;
  return format.LongAddrToIP(format.IPToLongAddr(address));
}

}  // namespace

std::optional<std::string> UsualIPv6(const std::string& text) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET6;
  wanted.ai_flags = AI_NUMERICHOST;
  addrinfo* found = nullptr;
  if (getaddrinfo(text.c_str(), nullptr, &wanted, &found) != 0) return std::nullopt;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  char usual[NI_MAXHOST] = {};
  if (getnameinfo(found->ai_addr, static_cast<socklen_t>(found->ai_addrlen), usual, sizeof usual, nullptr, 0,
                  NI_NUMERICHOST) != 0) {
    return std::nullopt;
  }
  return usual;
}

HostAddress FindAddress(ICMPCls& names, const std::string& host) {
  if (!IsIPv6(host) && !names.IsIPNumber(host)) return LookUp(names, host);
  const std::string address = Usual(host);
  if (!IsOfSingleHost(names, address)) {
    throw UsageError("\"" + host + "\" is not the address of a single host");
  }
  if (address.starts_with("fe80:") && address.find('%') == address.npos) {
    throw UsageError("\"" + host + "\" needs the interface of its link, as in " + host + "%eth0");
  }
  const bool v6 = IsIPv6(address);
  if (names.AddressPreference() == (v6 ? onlyIPv4 : onlyIPv6)) {
    throw UsageError("\"" + host + "\" is an address of IPv" + (v6 ? "6" : "4"));
  }
  return {address, 0, ""};
}

}  // namespace netro::tool
