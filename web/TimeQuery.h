// One running QueryTime of a QueryTimeCLS. Made on the caller's stack; it works on a copy of the
// settings and outlives a deletion of the object, which it then no longer touches.
#pragma once

#include <netro/QueryTimeCLS.h>

#include <span>

#include "platform/CallState.h"
#include "socket/OpenConnection.h"
#include "socket/Wait.h"
#include "web/TimeMessage.h"

namespace netro {

class TimeQuery {
 public:
  explicit TimeQuery(QueryTimeCLS& owner);

  /// Returns 0 or the error number; the results are set unless the object is gone.
  std::int32_t Run();

 private:
  std::int32_t AskOverUdp(Bytes& reply);
  std::int32_t AskOverTcp(Bytes& reply);
  std::span<const std::uint8_t> Begin();
  bool Accepts(std::span<const std::uint8_t> reply) const;
  void Arrived(TimePoint when);
  LookupSettings Lookups() const { return {settings_.dnsURL, settings_.preference}; }
  std::int32_t NameReference(std::int32_t ip, std::string& text);

  QueryTimeCLS& owner_;
  std::shared_ptr<CallState> call_;
  CancelMark mark_;
  const QueryTimeCLS::Settings settings_;
  const ProxyValues proxy_;
  const TimePoint deadline_;
  TimeExchange exchange_;
  TimePoint begun_;
  Bytes request_;
};

}  // namespace netro
