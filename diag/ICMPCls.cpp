// ICMPCls: ping, and what it tells of codes and addresses; a trace route is TraceRoute's work.
#include <netro/ICMPCls.h>

#include <algorithm>
#include <array>
#include <bit>
#include <new>

#include "diag/IcmpTexts.h"
#include "diag/TraceRoute.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostInfo.h"
#include "platform/Sockets.h"
#include "socket/EchoExchange.h"
#include "socket/HostLookup.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kNoAddress = -1;

using Octets = std::array<std::uint8_t, 4>;

enum IpType : std::int32_t {
  kTypeNone = 0,
  kTypePublic = 1,
  kTypePrivate = 2,
  kTypeLoopback = 3,
  kTypeLinkLocal = 4,
  kTypeMulticast = 5,
  kTypeBroadcast = 6,
};

// The first that fits counts. RFC 6890 lists them, except multicast (RFC 5771).
constexpr struct {
  Octets network;
  unsigned bits;
  IpType type;
} kNetworks[] = {
    {{255, 255, 255, 255}, 32, kTypeBroadcast},
    {{0, 0, 0, 0}, 8, kTypeNone},
    {{240, 0, 0, 0}, 4, kTypeNone},
    {{10, 0, 0, 0}, 8, kTypePrivate},
    {{172, 16, 0, 0}, 12, kTypePrivate},
    {{192, 168, 0, 0}, 16, kTypePrivate},
    {{100, 64, 0, 0}, 10, kTypePrivate},
    {{127, 0, 0, 0}, 8, kTypeLoopback},
    {{169, 254, 0, 0}, 16, kTypeLinkLocal},
    {{224, 0, 0, 0}, 4, kTypeMulticast},
    {{0, 0, 0, 0}, 0, kTypePublic},
};

std::uint32_t Number(const Octets& octets) {
  std::uint32_t number = 0;
  for (const std::uint8_t octet : octets) number = number << 8 | octet;
  return number;
}

// The address as a number whose highest byte is its first.
std::uint32_t Number(std::int32_t ip) { return Number(std::bit_cast<Octets>(ip)); }

// What the call returns; without memory for it that there are no resources.
template <class Call>
std::int32_t ResultOf(Call call) try {
  return call();
} catch (const std::bad_alloc&) {
  return -kIpNoResources;
}

}  // namespace

ICMPCls::ICMPCls() : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

ICMPCls::~ICMPCls() { call_->Die(); }

void ICMPCls::SetLastErr(std::int32_t error) {
  lastErr_ = error;
  lastErrMsg_ = error == 0 ? std::string() : IcmpErrorText(std::abs(error));
}

void ICMPCls::SetLookupResult(std::int32_t error) {
  dnsLastErr_ = error;
  dnsLastErrMsg_ = LookupErrorText(error);
}

std::int32_t ICMPCls::Resolve(const std::string& host, const CancelMark& mark, IpAddress& ip) {
  const auto call = call_;
  const LookupAnswer answer =
      ResolveHost(host, {settings_.dnsURL, settings_.preference}, mark, TimePoint::max());
  if (!call->alive) return kErrCancelled;
  SetLookupResult(answer.error);
  ip = answer.First();
  if (answer.error == kErrCancelled) return kErrCancelled;
  if (answer.error == kErrTimedOut) return -kIpTimedOut;
  return answer.error == 0 ? 0 : -kIcmpNoHost;
}

std::int32_t ICMPCls::PingHost(const std::string& Host) {
  const BusyScope busy(call_);
  if (busy.Refused()) return -busy.Error();
  const auto call = call_;
  const std::int32_t result = ResultOf([&] { return Ping(Host); });
  if (call->alive) SetLastErr(result == -kErrCancelled ? kErrCancelled : std::min(result, 0));
  return result;
}

std::int32_t ICMPCls::Ping(const std::string& host) {
  const CancelMark mark(module_, call_);
  EchoRequest request{{}, 0, settings_.pingPacketSize};
  const milliseconds timeout(settings_.pingTimeout);
  if (const std::int32_t error = Resolve(host, mark, request.ip)) return -std::abs(error);
  EchoExchange exchange(mark);
  EchoOutcome outcome;
  if (exchange.Open(request) != 0) return -kIcmpNoSocket;
  if (const std::int32_t error = exchange.Ask(request, timeout, outcome)) return -error;
  if (outcome.status != kIpSuccess) return -outcome.status;
  return static_cast<std::int32_t>(
      std::chrono::duration_cast<milliseconds>(outcome.roundTrip).count());
}

bool ICMPCls::TraceRt(const std::string& Host) {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  const std::int32_t error = ResultOf([&] { return TraceRoute(*this).Run(Host); });
  if (call->alive) SetLastErr(error);
  return error == 0;
}

std::string ICMPCls::DNSLookup(const std::string& Address) {
  const BusyScope busy(call_);
  if (busy.Refused()) return {};
  const auto call = call_;
  LookupAnswer answer =
      DefaultHostLookup().Lookup(Address, {settings_.dnsURL, settings_.preference},
                                 CancelMark(module_, call_), TimePoint::max());
  if (!call->alive) return {};
  SetLookupResult(answer.error);
  return std::move(answer.text);
}

std::string ICMPCls::GetICMPError(std::int32_t Error) const { return IcmpErrorText(Error); }

std::string ICMPCls::GetIPClass(const std::string& IP) const {
  if (IP.empty()) return {};
  const std::uint32_t address = Number(ParseDotted(IP).value_or(kNoAddress));
  constexpr int kClasses = 4;  // E is all that has four leading ones
  const int ones = std::min(std::countl_one(address), kClasses);
  return {static_cast<char>('A' + ones)};
}

std::int32_t ICMPCls::GetIPType(const std::string& IP) const {
  const auto ip = ParseDotted(IP);
  if (!ip) return kTypeNone;
  for (const auto& [network, bits, type] : kNetworks) {
    const std::uint64_t mask = ~std::uint64_t{0} << (32 - bits);
    if (((Number(*ip) ^ Number(network)) & mask) == 0) return type;
  }
  return kTypeNone;
}

std::string ICMPCls::GetServiceNameByPort(std::int32_t Port) const { return ReadServiceName(Port); }

std::int32_t ICMPCls::GetServicePortByName(const std::string& Name) const {
  return ReadServicePort(Name);
}

void ICMPCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void ICMPCls::Kill() { StopWaiting(); }

}  // namespace netro
