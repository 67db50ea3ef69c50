// What the client classes offer of the cache of name lookups that all objects of a thread share.
//
// Thread: as the class that offers it; these calls do not wait.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <string>

namespace netro {

/// The thread's cache of name lookups, as most classes offer it.
class NETRO_EXPORT NameLookups {
 public:
  /// True for a dotted IPv4 address; not for 255.255.255.255, whose number means none.
  bool IsIPNumber(const std::string& Address) const;

  /// Entries live for ten minutes; clearing forgets them all.
  void ClearDNSCache();
  std::int32_t GetDNSCacheCount() const;
  /// Write the entries to section "DNS" of an INI file, or read them back; what is past its time is
  /// left out, and deleted from the file when reading. An empty name means netro.ini in the user's
  /// configuration folder. Return the number of entries written or read; -1 when the file cannot be
  /// used.
  std::int32_t SaveDNSCache(const std::string& CacheName);
  std::int32_t RestoreDNSCache(const std::string& CacheName);

  /// True: where no server answers, an entry that has expired less than a day ago still counts (RFC
  /// 8767), for all lookups of this thread. LookupWasStale tells whether the thread's last lookup
  /// has ended so.
  bool ServeStale() const;
  void ServeStale(bool value);
  bool LookupWasStale() const;

 protected:
  ~NameLookups() = default;
};

}  // namespace netro
