// Feeds the text of a profile file: it must come back as it was, every change must be read back and
// touch nothing else, and what the lookup cache takes from it must survive being saved. The text
// is also tried as a date.
#include <iterator>
#include <map>
#include <optional>

#include "dns/LookupCache.h"
#include "fuzz/Fuzz.h"
#include "support/DateText.h"
#include "support/ProfileFile.h"

namespace {

using netro::ProfileFile;
using Values = std::map<std::string, std::string>;

Values ValuesOf(const ProfileFile& file) {
  Values values;
  for (const std::string& key : file.Keys("DNS")) {
    const auto value = file.Value("dns", key);
    Require(value && ProfileFile::CanHoldKey(key));
    Require(values.emplace(key, *value).second);
  }
  return values;
}

void CheckChanges(ProfileFile file, Values values) {
  bool remove = false;
  for (auto next = values.begin(); next != values.end(); remove = !remove) {
    // A value may hold what cannot be written, such as a NUL; it is replaced all the same.
    Require(file.Set("DNS", next->first, "new"));
    next->second = "new";
    if (remove) Require(file.Remove("DNS", next->first) && !file.Value("DNS", next->first));
    next = remove ? values.erase(next) : std::next(next);
  }
  Require(ValuesOf(ProfileFile::Parse(file.Text())) == values);
}

/// Uses the text as a new key and value.
void CheckAddition(ProfileFile file, const std::string& text) {
  const std::string key = text.substr(0, text.size() / 2);
  const std::string value = text.substr(text.size() / 2);
  const bool held = ProfileFile::CanHoldKey(key) && ProfileFile::CanHoldValue(value);
  Require(file.Set("Other", key, value) == held);
  if (held) Require(ProfileFile::Parse(file.Text()).Value("other", key) == value);
}

void CheckCache(ProfileFile file) {
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
  const ProfileFile file = ProfileFile::Parse(text);
  Require(file.Text() == text);
  const Values values = ValuesOf(file);
  CheckChanges(ProfileFile::Parse(text), values);
  CheckAddition(ProfileFile::Parse(text), text);
  CheckCache(ProfileFile::Parse(text));
  CheckDate(text);
  for (const auto& [key, value] : values) {
    CheckDate(value.substr(0, value.find('|')));
  }
  return 0;
}
