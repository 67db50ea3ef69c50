// Feeds the text of a profile file: it must come back as it was, every change must be read back and
// touch nothing else, and what the lookup cache takes from it must survive being saved. The text
// is also tried as a date.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "dns/LookupCache.h"
#include "support/DateText.h"
#include "support/ProfileFile.h"

namespace {

using netro::ProfileFile;
using Values = std::map<std::string, std::string>;

void Require(bool condition) {
  if (!condition) std::abort();
}

Values ValuesOf(const ProfileFile& file) {
  Values values;
  for (const std::string& key : file.Keys("DNS")) {
    const auto value = file.Value("dns", key);
    Require(value && ProfileFile::CanHoldKey(key));
    Require(values.emplace(key, *value).second);
  }
  return values;
}

void CheckChanges(const std::string& text) {
  ProfileFile file = ProfileFile::Parse(text);
  Values values = ValuesOf(file);
  for (const auto& [key, value] : Values(values)) {
    // A value may hold what cannot be written, such as a NUL; it is replaced all the same.
    Require(file.Set("DNS", key, "new"));
    values[key] = "new";
    Require(ValuesOf(ProfileFile::Parse(file.Text())) == values);
    if (values.size() % 2 == 0) {
      Require(file.Remove("DNS", key) && !file.Value("DNS", key));
      values.erase(key);
    }
    if (values.size() > 50) return;  // the square of what is left would take too long
  }
  Require(ValuesOf(ProfileFile::Parse(file.Text())) == values);
}

/// Uses the text as a new key and value.
void CheckAddition(const std::string& text) {
  ProfileFile file = ProfileFile::Parse(text);
  const std::string key = text.substr(0, text.size() / 2);
  const std::string value = text.substr(text.size() / 2);
  const bool held = ProfileFile::CanHoldKey(key) && ProfileFile::CanHoldValue(value);
  Require(file.Set("Other", key, value) == held);
  if (held) Require(ProfileFile::Parse(file.Text()).Value("other", key) == value);
}

void CheckCache(const std::string& text) {
  ProfileFile file = ProfileFile::Parse(text);
  netro::LookupCache cache;
  const std::int32_t count = cache.Restore(file);
  Require(count == cache.Count());
  ProfileFile saved;
  Require(cache.Save(saved) == count);
  netro::LookupCache again;
  Require(again.Restore(saved) == count && again.Count() == count &&
          saved.Keys("DNS").size() == static_cast<std::size_t>(count));
}

void CheckDate(const std::string& text) {
  if (const auto date = netro::TextToDate(text)) Require(netro::DateToText(*date) == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  Require(ProfileFile::Parse(text).Text() == text);
  CheckChanges(text);
  CheckAddition(text);
  CheckCache(text);
  CheckDate(text);
  for (const auto& [key, value] : ValuesOf(ProfileFile::Parse(text))) {
    CheckDate(value.substr(0, value.find('|')));
  }
  return 0;
}
