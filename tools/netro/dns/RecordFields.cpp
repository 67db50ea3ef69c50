// The simple fields of DNS records, bit maps and hashes.

#include "dns/RecordFields.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "dns/RecordTypes.h"
#include "dns/ZoneText.h"
#include "terminal/Encoding.h"

namespace netro::tool {
namespace {

/// What is left, in some form; there must be something.
template <class Form>
std::string Rest(RecordReader& data, Form form) {
  if (data.Remaining() == 0) data.Fail();
  return form(data.Rest());
}

std::string Lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return text;
}

std::string HardwareAddress(std::string_view bytes) {
  std::string text = Lower(Hex(bytes));
  std::ranges::replace(text, ' ', '-');
  return text;
}

void AddTypes(std::string& text, std::string_view bits, std::int32_t first) {
  for (std::size_t i = 0; i < bits.size() * 8; ++i) {
    if ((static_cast<std::uint8_t>(bits[i / 8]) >> (7 - i % 8) & 1) != 0) {
      AddWord(text, RecordTypeName(first + static_cast<std::int32_t>(i)));
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
std::string Name(RecordReader& data) { return data.Name(); }
std::string String(RecordReader& data) { return ZoneString(data.Counted()); }

std::string Type(RecordReader& data) {
  return RecordTypeName(static_cast<std::int32_t>(data.Number(2)));
}

std::string Strings(RecordReader& data) {
  std::string text = String(data);
  while (data.Remaining() > 0) AddWord(text, String(data));
  return text;
}

std::string RestAsString(RecordReader& data) { return ZoneString(data.Rest()); }
std::string RestAsHex(RecordReader& data) { return Rest(data, HexDigits); }
std::string RestAsBase64(RecordReader& data) { return Rest(data, Base64); }
std::string Key(RecordReader& data) { return Base64(data.Rest()); }
std::string Content(RecordReader& data) {
  return data.Remaining() == 0 ? "-" : Base64(data.Rest());
}

std::string NsapAddress(RecordReader& data) { return "0x" + Lower(RestAsHex(data)); }

std::string Tag(RecordReader& data) {
  const std::string_view tag = data.Counted();
  const bool good = std::ranges::all_of(
      tag, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
  if (tag.empty() || !good) data.Fail();
  return std::string(tag);
}

std::string Time(RecordReader& data) {
  const std::time_t seconds = data.Number(4);
  const std::tm* const utc = std::gmtime(&seconds);
  char text[16] = {};
  std::strftime(text, sizeof text, "%Y%m%d%H%M%S", utc);
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

std::string Eui48(RecordReader& data) { return HardwareAddress(data.Take(6)); }
std::string Eui64(RecordReader& data) { return HardwareAddress(data.Take(8)); }

}  // namespace field
}  // namespace netro::tool
