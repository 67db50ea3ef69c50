// The address that a user means by a host.

#include "terminal/HostAddress.h"

#include <netro/SocketCls.h>

#include "terminal/Command.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kNoSuchHost = 59;

bool IsOfSingleHost(const ICMPCls& icmp, const std::string& address) {
  constexpr std::int32_t kPublic = 1;
  constexpr std::int32_t kLinkLocal = 4;  // between them: private, loopback
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

}  // namespace

HostAddress FindAddress(ICMPCls& names, const std::string& host) {
  if (!names.IsIPNumber(host)) return LookUp(names, host);
  if (!IsOfSingleHost(names, host)) {
    throw UsageError("\"" + host + "\" is not the address of a single host");
  }
  // As those who answer are written: "127.1" is 127.0.0.1.
  const SocketCls format;
  return {format.LongAddrToIP(format.IPToLongAddr(host)), 0, ""};
}

}  // namespace netro::tool
