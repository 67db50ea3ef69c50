// EchoCls: many ICMP echo requests in flight at once (RFC 792, RFC 4443), to any number of hosts,
// through one socket for each family of addresses, which all objects of a thread share: pings of
// whole networks, and trace routes that ask all hops together. Nothing in it blocks; answers are
// events.
//
// Needs of the system what ICMPCls needs. Thread: as SocketCls.
#pragma once

#include <netro/EchoProbe.h>
#include <netro/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace netro {

class EchoRequests;

/// Which socket the requests go through; there is none before the first. Both families have theirs
/// by the same permission.
enum EchoSocketEnum : std::int32_t {
  EchoSocketNone = 0,
  EchoSocketDatagram = 1,  // allowed by net.ipv4.ping_group_range, for IPv6 too
  EchoSocketRaw = 2,       // allowed by CAP_NET_RAW
};

/// All that is known of how a request ended.
struct EchoAnswer {
  std::int32_t Id = 0;  // what Send returned
  std::string Host;  // who answered, empty where nobody did
  std::int32_t MicroSeconds = 0;  // from the request to the answer
  std::int32_t Status = 0;        // the IP status, 0 a reply; GetICMPError has its text
  std::int32_t TTL = 0;           // of the answer as it came; 0 where it is not known
  /// Of the ICMP message, as it came; -1 where there was none (silence, an answer over TCP). With
  /// IPv4 a packet filter says 3 and one of 9, 10 and 13, with IPv6 1 and one of 1, 5 and 6.
  std::int32_t IcmpType = -1;
  std::int32_t IcmpCode = -1;
  std::vector<MplsLabel> Labels;  // told by a router, outermost first
  bool Duplicate = false;         // the request has ended before, see EchoCls::Duplicates
};

/// Receives the events of an EchoCls. Inside an event everything is allowed, sending on and
/// deleting the object included. What an event throws leaves through the pump; other requests go
/// on.
class NETRO_EXPORT EchoClsEvents {
 public:
  virtual ~EchoClsEvents() = default;

  /// How a request ended; once for each that was not cancelled, never inside Send. `Host` is the
  /// address of who answered, empty where nobody did; `Status` the IP status (0 a reply, 11010
  /// nothing in time, 11013 time to live used up at `Host`; ICMPCls::GetICMPError has the texts);
  /// `TTL` that of the answer as it arrived, of IPv6 its hop limit.
  virtual void Reply(std::int32_t Id, const std::string& Host, std::int32_t MicroSeconds,
                     std::int32_t Status, std::int32_t TTL) {
    (void)Id, (void)Host, (void)MicroSeconds, (void)Status, (void)TTL;
  }

  /// What raises Reply, for those who want to know more; it does no more than that for a request's
  /// end, and nothing for a duplicate.
  virtual void Answer(const EchoAnswer& Answer) {
    if (Answer.Duplicate) return;
    Reply(Answer.Id, Answer.Host, Answer.MicroSeconds, Answer.Status, Answer.TTL);
  }
};

class NETRO_EXPORT EchoCls {
 public:
  EchoCls();
  ~EchoCls();
  EchoCls(const EchoCls&) = delete;
  EchoCls& operator=(const EchoCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  EchoClsEvents* Events() const { return events_; }
  void Events(EchoClsEvents* sink) { events_ = sink; }

  // Settings; Send works on what they are when it is called.

  /// What the requests are: echoes, or for a trace route UDP or TCP probes. These need no
  /// permission; each has a descriptor while it is in flight.
  EchoProbeEnum Probe() const { return probe_; }
  void Probe(EchoProbeEnum value) { probe_ = value; }
  /// The port of UDP and TCP probes; 0 is 33434 for UDP and 80 for TCP.
  std::int32_t Port() const { return port_; }
  void Port(std::int32_t value) { port_ = value; }
  /// True: an echo that comes again, until the time of its request is over, raises Answer anew with
  /// Duplicate set. False at first.
  bool Duplicates() const { return duplicates_; }
  void Duplicates(bool value);

  /// Sends one request to an address (a link-local one with its zone: "fe80::1%eth0") and returns
  /// its id; the outcome comes as Reply, also when the system refuses to send. `TTL` is the hop
  /// limit of IPv6, 0 the system's, `Size` the bytes of data. 0 on failure: LastErr tells why.
  /// 65,536 may be in flight.
  std::int32_t Send(const std::string& IP, std::int32_t TTL = 0, std::int32_t Size = 32,
                    std::int32_t TimeoutMilliSeconds = 5000);
  /// No Reply will come for this request. Unknown ids are ignored.
  void Cancel(std::int32_t Id);

  /// Requests without a Reply yet.
  std::int32_t Pending() const;
  /// The kind of socket of the last Send; EchoSocketNone before the first.
  EchoSocketEnum SocketUsed() const;
  /// Of the last Send: 0; 10022 no address, or no port; -10001 the system allows this program no
  /// echo or has no socket left; -11006 too many in flight, or no memory. And its text, empty for
  /// 0.
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const { return lastErrMsg_; }

 private:
  std::int32_t SetLastErr(std::int32_t error);

  std::unique_ptr<EchoRequests> requests_;
  EchoClsEvents* events_ = nullptr;
  EchoProbeEnum probe_ = EchoProbeICMP;
  std::int32_t port_ = 0;
  bool duplicates_ = false;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
