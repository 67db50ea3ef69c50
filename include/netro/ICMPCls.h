// ICMPCls: asks a host for an echo (ping) and finds the routers on the way to it (trace route), by
// ICMP (RFC 792) or, for IPv6, ICMPv6 (RFC 4443).
//
// Needs one of two things of the system: a group of the program's user inside
// net.ipv4.ping_group_range, or the capability CAP_NET_RAW. Without them the result is -10001.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. PingHost, TraceRt and DNSLookup block, keeping the loop alive. While one of them runs,
// another on the same object is refused and changes nothing.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/EchoProbe.h>
#include <netro/Export.h>
#include <netro/NameLookups.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class CancelMark;
class IpAddress;
class SocketModule;
struct CallState;

/// Receives the events of an ICMPCls. Inside an event everything is allowed, deleting the object
/// included; an exception ends the trace route, see SocketClsEvents.
class NETRO_EXPORT ICMPClsEvents {
 public:
  virtual ~ICMPClsEvents() = default;

  /// One step of a trace route: the address of the router that answered, or of the destination, the
  /// round trip in milliseconds, and the IP status: 0 the destination's reply, 11013 a router's
  /// word that the time to live was used up, others as in ICMPCls::GetICMPError. Where nobody
  /// answered, `Host` is empty and the time 0. Set `Cancel` to end the trace route here.
  virtual void Hop(const std::string& Host, std::int32_t RoundTripTime, std::int32_t Status,
                   bool& Cancel) {
    (void)Host, (void)RoundTripTime, (void)Status, (void)Cancel;
  }
};

class NETRO_EXPORT ICMPCls : public NameLookups {
 public:
  ICMPCls();
  ~ICMPCls();
  ICMPCls(const ICMPCls&) = delete;
  ICMPCls& operator=(const ICMPCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  ICMPClsEvents* Events() const { return events_; }
  void Events(ICMPClsEvents* sink) { events_ = sink; }

  // Settings. A call works on what they are when it begins. Negative numbers count as 0.

  /// Milliseconds to wait for the reply to a ping.
  std::int32_t PingTimeout() const { return settings_.pingTimeout; }
  void PingTimeout(std::int32_t value) { settings_.pingTimeout = value; }
  /// Bytes of data in a ping, 65,507 at most.
  std::int32_t PingPacketSize() const { return settings_.pingPacketSize; }
  void PingPacketSize(std::int32_t value) { settings_.pingPacketSize = value; }
  /// The highest time to live that a trace route tries; above 255 there is none.
  std::int32_t TRMaxHops() const { return settings_.maxHops; }
  void TRMaxHops(std::int32_t value) { settings_.maxHops = value; }
  /// Milliseconds to wait for the answer of each hop.
  std::int32_t TRTimeout() const { return settings_.traceTimeout; }
  void TRTimeout(std::int32_t value) { settings_.traceTimeout = value; }
  /// Bytes of data in each request of a trace route.
  std::int32_t TRPacketSize() const { return settings_.tracePacketSize; }
  void TRPacketSize(std::int32_t value) { settings_.tracePacketSize = value; }
  /// Milliseconds of pause between two hops.
  std::int32_t TRDelay() const { return settings_.delay; }
  void TRDelay(std::int32_t value) { settings_.delay = value; }
  /// What a trace route asks with, echoes or UDP or TCP probes; the latter need no permission.
  EchoProbeEnum TRProbe() const { return settings_.probe; }
  void TRProbe(EchoProbeEnum value) { settings_.probe = value; }
  /// The port of UDP and TCP probes; 0 is 33434 for UDP and 80 for TCP. With one that is none
  /// TraceRt fails with 10022.
  std::int32_t TRPort() const { return settings_.port; }
  void TRPort(std::int32_t value) { settings_.port = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return settings_.dnsURL; }
  void DNSURL(std::string value) { settings_.dnsURL = std::move(value); }
  /// Which address of a host is used, the first in the order of AddressPreference.h; no other is
  /// tried.
  AddressPreferenceEnum AddressPreference() const { return settings_.preference; }
  void AddressPreference(AddressPreferenceEnum value) { settings_.preference = value; }

  /// The round trip of one echo in whole milliseconds. Negative on failure: -10000 no such host,
  /// -10001 the system allows this program no echo or has no socket left, -9999 cancelled, -10036
  /// refused, else an IP status, such as -11010 no reply in time.
  std::int32_t PingHost(const std::string& Host);

  /// Sends one echo request for each time to live from 1 on, raising Hop for each, until `Host`
  /// itself has answered or TRMaxHops is reached: true. False with LastErr -10000, -10001, 9999 or,
  /// without memory, -11006, or when the call is refused. A router's word that it goes no further
  /// (11002, 11003 ...) is raised like any other and does not end the trace route.
  bool TraceRt(const std::string& Host);

  // Of the last trace route, up to date in Hop.

  /// Number of Hop events, those of silent hops included.
  std::int32_t TRHopCount() const { return hopCount_; }
  /// Milliseconds of all hops that answered.
  std::int32_t TRSumRoundTripTime() const { return sumRoundTripTime_; }
  /// True when Hop has set Cancel.
  bool TRCanceled() const { return canceled_; }

  /// Of the last PingHost or TraceRt: 0, 9999 when it was cancelled, else the negative number that
  /// PingHost returns; and its text, empty for 0.
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const { return lastErrMsg_; }

  /// Result of the last name lookup: 0, 59 (no such host), 9999, 10002 or 10022, and its text.
  std::int32_t DNSLastErr() const { return dnsLastErr_; }
  const std::string& DNSLastErrMsg() const { return dnsLastErrMsg_; }
  /// The address that a name resolves to, or the name of a dotted address; empty on failure.
  std::string DNSLookup(const std::string& Address);

  /// The text of a positive code: that of PingHost without its sign, or the status of Hop.
  std::string GetICMPError(std::int32_t Error) const;
  /// "A" to "E" by the first bits of the address; "E" for a text that is none, empty for an empty
  /// one.
  std::string GetIPClass(const std::string& IP) const;
  /// 0 no address, or one that no host has (0.0.0.0/8, 240.0.0.0/4); 1 public; 2 private (RFC 1918,
  /// and 100.64.0.0/10 of RFC 6598); 3 loopback; 4 link-local; 5 multicast; 6 broadcast
  /// (255.255.255.255).
  std::int32_t GetIPType(const std::string& IP) const;
  /// The system's table of TCP services ("http" and 80); empty and 0 for what it does not hold.
  std::string GetServiceNameByPort(std::int32_t Port) const;
  std::int32_t GetServicePortByName(const std::string& Name) const;

  /// End the running call with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class TraceRoute;

  struct Settings {
    std::int32_t pingTimeout = 5000;
    std::int32_t pingPacketSize = 32;
    std::int32_t maxHops = 30;
    std::int32_t traceTimeout = 5000;
    std::int32_t tracePacketSize = 32;
    std::int32_t delay = 0;
    EchoProbeEnum probe = EchoProbeICMP;
    std::int32_t port = 0;
    std::string dnsURL;
    AddressPreferenceEnum preference = preferIPv4;
  };

  std::int32_t Ping(const std::string& host);
  std::int32_t Resolve(const std::string& host, const CancelMark& mark, IpAddress& ip);
  void SetLastErr(std::int32_t error);
  void SetLookupResult(std::int32_t error);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  ICMPClsEvents* events_ = nullptr;
  Settings settings_;
  std::int32_t hopCount_ = 0;
  std::int32_t sumRoundTripTime_ = 0;
  bool canceled_ = false;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
  std::int32_t dnsLastErr_ = 0;
  std::string dnsLastErrMsg_;
};

}  // namespace netro
