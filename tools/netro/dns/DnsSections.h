// The three sections of a reply (RFC 1035, section 4.1), so that code can go through them.
#pragma once

#include <netro/QueryDNSCLS.h>

#include <cstdint>

namespace netro::tool {

struct DnsSection {
  const char* heading;
  const char* key;  // in JSON
  std::int32_t (QueryDNSCLS::*count)() const;
  const DNSCLS* (QueryDNSCLS::*entry)(std::int32_t Index) const;
};

inline constexpr DnsSection kDnsSections[] = {
    {"ANSWER", "answer", &QueryDNSCLS::CountAN, &QueryDNSCLS::EntryAN},
    {"AUTHORITY", "authority", &QueryDNSCLS::CountNS, &QueryDNSCLS::EntryNS},
    {"ADDITIONAL", "additional", &QueryDNSCLS::CountAR, &QueryDNSCLS::EntryAR},
};

/// Seconds, the number that it was on the wire.
inline std::uint32_t TimeToLive(const DNSCLS& record) {
  return static_cast<std::uint32_t>(record.TTL());
}

/// Calls `show` with each record of a section, in order.
template <class Show>
void ForEachRecord(const QueryDNSCLS& query, const DnsSection& section, Show show) {
  const std::int32_t count = (query.*section.count)();
  for (std::int32_t i = 1; i <= count; ++i) show(*(query.*section.entry)(i));
}

}  // namespace netro::tool
