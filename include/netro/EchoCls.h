// EchoCls: many ICMP echo requests in flight at once (RFC 792, RFC 4443), to any number of hosts,
// through one socket for each family of addresses: pings of whole networks, and trace routes that
// ask all hops together. Nothing in it blocks; answers are events.
//
// Needs of the system what ICMPCls needs. Thread: as SocketCls.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace netro {

class EchoRequests;

/// Which socket the requests go through; there is none before the first. Both families have theirs
/// by the same permission.
enum EchoSocketEnum : std::int32_t {
  EchoSocketNone = 0,
  EchoSocketDatagram = 1,  // allowed by net.ipv4.ping_group_range, for IPv6 too
  EchoSocketRaw = 2,       // allowed by CAP_NET_RAW
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
  EchoSocketEnum SocketUsed() const;
  /// Of the last Send: 0; 10022 no address; -10001 the system allows this program no echo or has no
  /// socket left; -11006 too many in flight, or no memory. And its text, empty for 0.
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const { return lastErrMsg_; }

 private:
  std::int32_t SetLastErr(std::int32_t error);

  std::unique_ptr<EchoRequests> requests_;
  EchoClsEvents* events_ = nullptr;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
