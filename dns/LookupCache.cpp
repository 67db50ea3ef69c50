#include "dns/LookupCache.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>

#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "platform/WholeFile.h"
#include "support/DateText.h"
#include "support/ProfileFile.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr double kLifetimeSeconds = 600;
constexpr double kStaleSeconds = 86'400;
constexpr std::string_view kSection = "DNS";
constexpr int kUnusable = -1;
constexpr std::size_t kLargestFile = std::size_t{256} << 20;

// A link could have been put there to have another file read, and its lines saved under this name.
std::int32_t ReadCacheFile(const std::string& path, std::string& text) {
  return ReadWholeFile(path, text, kLargestFile, Links::Refused);
}

/// The profile's path; empty when there is none.
std::string PathOf(const std::string& fileName) {
  if (!fileName.empty()) return fileName;
  const std::string folder = UserConfigFolder();
  return folder.empty() ? folder : folder + "/netro.ini";
}

struct SavedEntry {
  Date expiry;
  std::string result;
};

std::optional<SavedEntry> ParseEntry(std::string_view value) {
  const std::size_t bar = value.find('|');
  if (bar == value.npos) return std::nullopt;
  const auto expiry = TextToDate(value.substr(0, bar));
  if (!expiry) return std::nullopt;
  return SavedEntry{*expiry, std::string(value.substr(bar + 1))};
}

// Anybody may have written the file. What ends in a number is no name (RFC 1123, section 2.1), and
// the addresses of nobody and everybody lead to no host.
bool IsAddressOrName(const std::string& text) {
  if (const auto address = ParseAddress(text)) {
    return !address->IsUnspecified() && !address->IsBroadcast();
  }
  const std::string name = text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
  const std::string last = name.substr(name.rfind('.') + 1);
  return IsHostName(name) && last.find_first_not_of("0123456789") != last.npos;
}

// Several addresses, or one name.
bool IsUsable(const std::string& result) {
  const std::vector<std::string> parts = Split(result, ',');
  if (parts.size() == 1) return IsAddressOrName(result);
  return std::ranges::all_of(
      parts, [](const std::string& one) { return ParseAddress(one) && IsAddressOrName(one); });
}

}  // namespace

std::optional<std::string> LookupCache::Find(const std::string& key) {
  const auto* const found = index_.Find(key);
  if (found == nullptr) return std::nullopt;
  const auto entry = *found;
  const Date now = WallClock();
  if (now <= entry->Expiry()) return entry->Result();
  if (keepsExpired_ && now <= AddSeconds(entry->Expiry(), kStaleSeconds)) return std::nullopt;
  Forget(key);
  return std::nullopt;
}

void LookupCache::Forget(const std::string& key) {
  const auto* const found = index_.Find(key);
  if (found == nullptr) return;
  const auto entry = *found;
  index_.Remove(key);
  entries_.erase(entry);
}

std::optional<std::string> LookupCache::FindExpired(const std::string& key) {
  if (Find(key)) return std::nullopt;
  const auto* const found = index_.Find(key);
  return found != nullptr ? std::optional((*found)->Result()) : std::nullopt;
}

void LookupCache::Insert(const std::string& key, const std::string& result) {
  Add(key, result, AddSeconds(WallClock(), kLifetimeSeconds));
}

void LookupCache::Add(const std::string& key, const std::string& result, Date expiry) {
  if (const auto* const old = index_.Find(key)) {
    if (!keepsExpired_ || Holds(key)) return;
    (*old)->Result(result);
    (*old)->Expiry(expiry);
    return;
  }
  DNSCacheCls& entry = entries_.emplace_back();
  entry.Key(key);
  entry.Result(result);
  entry.Expiry(expiry);
  index_.Add(std::prev(entries_.end()));
}

void LookupCache::Clear() {
  index_.Clear();
  entries_.clear();
}

bool LookupCache::Holds(const std::string& key) const {
  const auto* const found = index_.Find(key);
  return found != nullptr && WallClock() <= (*found)->Expiry();
}

std::int32_t LookupCache::Save(ProfileFile& profile, const LookupCache* except) const {
  const Date now = WallClock();
  std::int32_t written = 0;
  for (const DNSCacheCls& entry : entries_) {
    if (now > entry.Expiry() || (except != nullptr && except->Holds(entry.Key()))) continue;
    const std::string value = DateToText(entry.Expiry()) + "|" + entry.Result();
    if (profile.Set(kSection, entry.Key(), value)) ++written;
  }
  return written;
}

std::int32_t LookupCache::Restore(ProfileFile& profile) {
  const Date now = WallClock();
  const Date latest = AddSeconds(now, kLifetimeSeconds);
  std::int32_t read = 0;
  for (const std::string& key : profile.Keys(kSection)) {
    const auto saved = ParseEntry(*profile.Value(kSection, key));
    if (!saved) continue;
    if (now > saved->expiry) {
      profile.Remove(kSection, key);
    } else if (IsUsable(saved->result)) {
      Add(key, saved->result, std::min(saved->expiry, latest));
      ++read;
    }
  }
  return read;
}

std::int32_t LookupCache::Save(const std::string& fileName, const LookupCache* more) const try {
  const std::string path = PathOf(fileName);
  if (path.empty()) return kUnusable;
  if (fileName.empty() && CreateFolder(UserConfigFolder()) != 0) return kUnusable;
  std::string text;
  const std::int32_t error = ReadCacheFile(path, text);
  if (error != 0 && error != FileErrorNumber(ENOENT)) return kUnusable;
  ProfileFile profile = ProfileFile::Parse(text);
  const std::int32_t written = Save(profile) + (more != nullptr ? more->Save(profile, this) : 0);
  return ReplaceFile(path, profile.Text()) == 0 ? written : kUnusable;
} catch (const std::bad_alloc&) {
  return kUnusable;
}

std::int32_t LookupCache::Restore(const std::string& fileName) try {
  const std::string path = PathOf(fileName);
  std::string text;
  if (path.empty() || ReadCacheFile(path, text) != 0) return kUnusable;
  ProfileFile profile = ProfileFile::Parse(text);
  const std::int32_t read = Restore(profile);
  if (profile.IsChanged()) ReplaceFile(path, profile.Text());
  return read;
} catch (const std::bad_alloc&) {
  return kUnusable;
}

}  // namespace netro
