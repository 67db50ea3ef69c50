// The names and addresses that were looked up lately. Each thread that uses the library has one,
// held by its host lookup; no locking.
#pragma once

#include <netro/DNSCacheCls.h>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <string_view>

#include "support/NameIndex.h"

namespace netro {

class ProfileFile;

/// Entries live 600 seconds by the wall clock and are removed when a lookup finds them expired, not
/// before. Keys ignore the case of ASCII letters and are kept as first asked.
///
/// Save and Restore use the section "DNS" of a profile file: the entry's key, and as its value the
/// expiry, "|" and the result ("www.example.org=2026-11-21T10:45:00.123Z|192.0.2.7"). An empty file
/// name means netro.ini in the user's configuration folder, which saving creates. Both return -1
/// when there is no such folder or the file cannot be used.
class LookupCache {
 public:
  LookupCache() = default;
  LookupCache(const LookupCache&) = delete;
  LookupCache& operator=(const LookupCache&) = delete;

  /// The result for `key`. An entry that has expired is removed instead.
  std::optional<std::string> Find(const std::string& key);

  /// With `keep`, Find leaves expired entries in place, where FindExpired finds them for a day.
  void KeepExpired(bool keep) { keepsExpired_ = keep; }
  std::optional<std::string> FindExpired(const std::string& key);
  void Forget(const std::string& key);

  /// Adds an entry, unless there is one with that key that is not just kept.
  void Insert(const std::string& key, const std::string& result);

  void Clear();
  /// Entries that nobody asked for since they expired count as well.
  std::int32_t Count() const { return static_cast<std::int32_t>(entries_.size()); }

  /// Writes the entries that have not expired, beside what else the file holds, and returns how
  /// many, with those of `more` whose key is not here. What a line cannot hold is left out. The
  /// file is replaced in one step, with mode 0600.
  std::int32_t Save(const std::string& fileName, const LookupCache* more = nullptr) const;

  /// Adds the entries that have not expired, with the expiry they were saved with but 600 seconds
  /// at most, and returns how many there are in the file; of those, the ones whose key is here
  /// already change nothing. Expired ones are deleted from the file, if it can be written. Entries
  /// that cannot be read, or whose result is neither address nor host name, are skipped.
  std::int32_t Restore(const std::string& fileName);

  /// The same to and from a document.
  std::int32_t Save(ProfileFile& profile, const LookupCache* except = nullptr) const;
  std::int32_t Restore(ProfileFile& profile);

 private:
  using Entries = std::list<DNSCacheCls>;
  struct KeyOf {
    std::string_view operator()(Entries::const_iterator entry) const { return entry->Key(); }
  };

  void Add(const std::string& key, const std::string& result, Date expiry);
  bool Holds(const std::string& key) const;

  Entries entries_;  // in the order in which they came
  NameIndex<Entries::iterator, KeyOf> index_;
  bool keepsExpired_ = false;
};

}  // namespace netro
