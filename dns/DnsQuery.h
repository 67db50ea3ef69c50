// One running query of a QueryDNSCLS: from the settings to the result code. Made on the caller's
// stack; it works on a copy of the settings and outlives a deletion of the object, which it then no
// longer touches.
#pragma once

#include <netro/QueryDNSCLS.h>

#include "dns/DnsExchange.h"
#include "platform/CallState.h"

namespace netro {

class DnsQuery {
 public:
  explicit DnsQuery(QueryDNSCLS& owner);
  /// Under the cancellation of another call, whose own object `owner` is.
  DnsQuery(QueryDNSCLS& owner, const CancelMark& mark);

  /// QueryDNS: over UDP or TCP, with retries.
  std::int32_t Run();
  /// QueryZone: once, over TCP.
  std::int32_t RunOnce();
  /// The last reply could not be read, whatever code it bore.
  bool WasMalformed() const { return malformed_; }

 private:
  void Forget();
  std::int32_t Check();
  std::int32_t Compose(Bytes& query);
  std::int32_t Exchange(bool udp);
  std::int32_t ExchangeUdp(const Bytes& query);
  std::int32_t ExchangeTcp(const Bytes& query);
  DnsQuestion Question() const;
  DnsReading Reading() const;
  std::int32_t Plan(ConnectionPlan& plan) const;
  void Publish(DnsReply& reply, const Bytes& message, bool truncated);

  QueryDNSCLS& owner_;
  std::shared_ptr<CallState> call_;
  CancelMark mark_;
  const QueryDNSCLS::Settings settings_;
  const ProxyValues proxy_;
  const TimePoint limit_;
  Bytes query_;  // the same for all tries
  DatagramExchange tries_;
  bool malformed_ = false;
};

}  // namespace netro
