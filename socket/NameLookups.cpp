#include <netro/NameLookups.h>

#include "platform/Sockets.h"
#include "socket/HostLookup.h"

namespace netro {

bool NameLookups::IsIPNumber(const std::string& Address) const {
  return ParseDotted(Address).value_or(-1) != -1;
}

void NameLookups::ClearDNSCache() { DefaultHostLookup().Clear(); }

std::int32_t NameLookups::GetDNSCacheCount() const { return DefaultHostLookup().Count(); }

std::int32_t NameLookups::SaveDNSCache(const std::string& CacheName) {
  return DefaultHostLookup().Save(CacheName);
}

std::int32_t NameLookups::RestoreDNSCache(const std::string& CacheName) {
  return DefaultHostLookup().Restore(CacheName);
}

bool NameLookups::ServeStale() const { return DefaultHostLookup().ServeStale(); }

void NameLookups::ServeStale(bool value) { DefaultHostLookup().ServeStale(value); }

bool NameLookups::LookupWasStale() const { return DefaultHostLookup().WasStale(); }

}  // namespace netro
