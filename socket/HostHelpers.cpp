// The host and address helpers of SocketCls.
#include <netro/SocketCls.h>

#include <new>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostInfo.h"
#include "platform/HostsFile.h"
#include "platform/Sockets.h"
#include "socket/EchoExchange.h"
#include "socket/HostLookup.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"

namespace netro {
namespace {

constexpr std::int32_t kNoAddress = -1;
constexpr std::chrono::seconds kEchoTime(1);

}  // namespace

std::string SocketCls::LocalHostName() const { return ReadHostName(); }

std::vector<std::string> SocketCls::LocalIPs() const {
  std::vector<std::string> texts;
  const std::vector<IpAddress> all = ReadHostAddresses();
  const auto add = [&](AddressFamily family) {
    for (const IpAddress& address : all) {
      if (address.Family() == family) texts.push_back(FormatAddress(address));
    }
  };
  if (preference_ == preferIPv6 || preference_ == onlyIPv6) add(AddressFamily::IPv6);
  if (preference_ != onlyIPv6) add(AddressFamily::IPv4);
  return texts;
}

std::vector<std::string> SocketCls::LocalAliases() const { return HostsFileAliases("localhost"); }

std::int32_t SocketCls::IPToLongAddr(const std::string& IpAddress) const {
  return ParseDotted(IpAddress).value_or(kNoAddress);
}

std::string SocketCls::LongAddrToIP(std::int32_t IP) const {
  return IP == 0 || IP == kNoAddress ? std::string() : FormatDotted(IP);
}

std::string SocketCls::GetSockInfo(std::int32_t What) const {
  const StackFacts facts = module_->Facts();
  switch (What) {
    case 1:
      return facts.description;
    case 2:
      return std::to_string(facts.mostSockets);
    case 3:
      return facts.status;
    case 4:
      return std::to_string(facts.major);
    case 5:
      return std::to_string(facts.minor);
    case 6:
      return std::to_string(facts.highestMajor);
    case 7:
      return std::to_string(facts.highestMinor);
    default:
      return {};
  }
}

std::string SocketCls::DNSLookup(const std::string& Address) { return LookUp(Address).text; }

std::vector<std::string> SocketCls::DNSLookupAll(const std::string& Name) {
  const LookupAnswer answer = LookUp(Name);
  std::vector<std::string> texts;
  for (const IpAddress& address : answer.addresses) texts.push_back(FormatAddress(address));
  return texts;
}

LookupAnswer SocketCls::LookUp(const std::string& address) {
  const BusyScope busy(call_);
  if (busy.Refused()) {
    if (!busy.WrongThread()) SetLookupResult(kErrInProgress);
    return {};
  }
  const auto call = call_;
  LookupAnswer answer = DefaultHostLookup().Lookup(address, {dnsURL_, preference_},
                                                   CancelMark(module_, call_), TimePoint::max());
  if (!call->alive) return {};
  SetLookupResult(answer.error);
  return answer;
}

std::string SocketCls::RemoteClientName() { return DNSLookup(remoteIP_); }

const std::string& SocketCls::DNSURL() const {
  return dnsURL_ ? *dnsURL_ : DefaultHostLookup().DefaultServers(CancelMark(module_, call_));
}

void SocketCls::SetLookupResult(std::int32_t error) {
  dnsLastErr_ = error;
  dnsLastErrMsg_ = LookupErrorText(error);
}

bool SocketCls::IsIPReachable(const std::string& IP) try {
  const auto ip = ParseAddress(IP);
  const BusyScope busy(call_);
  if (!ip || busy.Refused()) return false;
  EchoExchange exchange(CancelMark(module_, call_));
  EchoOutcome outcome;
  return exchange.Open({*ip}) == 0 && exchange.Ask({*ip}, kEchoTime, outcome) == 0 &&
         outcome.status == kIpSuccess;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace netro
