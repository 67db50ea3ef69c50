// The simple fields of DNS records, bit maps and hashes.

#include "dns/RecordFields.h"

#include <netro/RecordText.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "dns/DnsLocation.h"
#include "dns/ZoneText.h"
#include "support/Base64.h"
#include "support/Text.h"

namespace netro {
namespace {

/// What is left, in some form; there must be something.
template <class Form>
std::string Rest(RecordReader& data, Form form) {
  if (data.Remaining() == 0) data.Fail();
  return form(data.Rest());
}

/// "01-23-45", of one byte or more.
std::string WithHyphens(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    if (!text.empty()) text += '-';
    AppendHex(text, c);
  }
  return ToLower(text);
}

void AddTypes(std::string& text, std::string_view bits, std::int32_t first) {
  for (std::size_t i = 0; i < bits.size() * 8; ++i) {
    if ((static_cast<std::uint8_t>(bits[i / 8]) >> (7 - i % 8) & 1) != 0) {
      AddWord(text, RecordTypeText(first + static_cast<std::int32_t>(i)));
    }
  }
}

}  // namespace

void AddWord(std::string& line, const std::string& word) {
  line += (line.empty() || word.empty() ? "" : " ") + word;
}

namespace field {

std::string U8(RecordReader& data) { return std::to_string(data.Number(1)); }
std::string U16(RecordReader& data) { return std::to_string(data.Number(2)); }
std::string U32(RecordReader& data) { return std::to_string(data.Number(4)); }
std::string IPv4(RecordReader& data) { return data.IPv4(); }
std::string IPv6(RecordReader& data) { return data.IPv6(); }
std::string Name(RecordReader& data) { return data.Name(); }
std::string String(RecordReader& data) { return ZoneString(data.Counted()); }

std::string Type(RecordReader& data) {
  return RecordTypeText(static_cast<std::int32_t>(data.Number(2)));
}

std::string Strings(RecordReader& data) {
  std::string text = String(data);
  while (data.Remaining() > 0) AddWord(text, String(data));
  return text;
}

std::string RestAsString(RecordReader& data) { return ZoneString(data.Rest()); }
std::string RestAsHex(RecordReader& data) { return Rest(data, HexDigits); }
std::string RestAsBase64(RecordReader& data) { return Rest(data, Base64Encode); }
std::string Key(RecordReader& data) { return Base64Encode(data.Rest()); }
std::string Content(RecordReader& data) {
  return data.Remaining() == 0 ? "-" : Base64Encode(data.Rest());
}

std::string NsapAddress(RecordReader& data) { return "0x" + ToLower(RestAsHex(data)); }

std::string Tag(RecordReader& data) {
  const std::string_view tag = data.Counted();
  if (tag.empty() || !std::ranges::all_of(tag, IsAlphanumeric)) data.Fail();
  return std::string(tag);
}

std::string Time(RecordReader& data) {
  namespace chrono = std::chrono;
  const chrono::sys_seconds time{chrono::seconds(data.Number(4))};
  const auto day = chrono::floor<chrono::days>(time);
  const chrono::year_month_day date(day);
  const chrono::hh_mm_ss clock(time - day);
  char text[32] = {};
  std::snprintf(text, sizeof text, "%04d%02u%02u%02d%02d%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

// --- types in bit maps ---------------------------------------------------------------------------

std::string Types(RecordReader& data) {
  std::string text;
  std::int32_t next = 0;
  while (data.Remaining() > 0) {
    const auto window = static_cast<std::int32_t>(data.Number(1));
    const std::string_view bits = data.Counted();
    if (bits.empty() || bits.size() > 32 || window < next) data.Fail();
    AddTypes(text, bits, window * 256);
    next = window + 1;
  }
  return text;
}

std::string OldTypes(RecordReader& data) {
  constexpr std::size_t kMostBytes = 16;
  if (data.Remaining() > kMostBytes) data.Fail();
  std::string text;
  AddTypes(text, data.Rest(), 0);
  return text;
}

// --- hashes and other numbers --------------------------------------------------------------------

std::string Salt(RecordReader& data) {
  const std::string_view salt = data.Counted();
  return salt.empty() ? "-" : HexDigits(salt);
}

std::string HashedName(RecordReader& data) {
  constexpr char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUV";
  const std::string_view hash = data.Counted();
  if (hash.empty()) data.Fail();
  std::string text;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : hash) {
    bits = bits << 8 | static_cast<std::uint8_t>(c);
    for (count += 8; count >= 5; count -= 5) text += kDigits[bits >> (count - 5) & 31];
  }
  return count == 0 ? text : text + kDigits[bits << (5 - count) & 31];
}

std::string Locator64(RecordReader& data) {
  std::string text;
  for (int group = 0; group < 4; ++group) {
    char digits[8] = {};
    std::snprintf(digits, sizeof digits, group == 0 ? "%x" : ":%x", data.Number(2));
    text += digits;
  }
  return text;
}

std::string Ports(RecordReader& data) {
  std::string text;
  std::size_t port = 0;
  for (const char c : data.Rest()) {
    for (int bit = 7; bit >= 0; --bit, ++port) {
      if ((c >> bit & 1) != 0) AddWord(text, std::to_string(port));
    }
  }
  return text;
}

std::string Location(RecordReader& data) {
  DNSCLS record;
  if (!ReadLocation(data.Bytes(), record)) data.Fail();
  return record.Data();
}

std::string AtmAddress(RecordReader& data) {
  const std::uint32_t format = data.Number(1);
  const std::string_view address = data.Rest();
  const bool digits = address.find_first_not_of("0123456789") == address.npos;
  if (address.empty() || format > 1 || (format == 1 && !digits)) data.Fail();
  return format == 0 ? ToLower(HexDigits(address)) : "+" + std::string(address);
}

std::string Eui48(RecordReader& data) { return WithHyphens(data.Take(6)); }
std::string Eui64(RecordReader& data) { return WithHyphens(data.Take(8)); }

}  // namespace field
}  // namespace netro
