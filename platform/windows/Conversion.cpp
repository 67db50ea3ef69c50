#include "platform/Conversion.h"

#include <algorithm>
#include <charconv>

#include "platform/windows/System.h"
#include "support/Text.h"

namespace netro {
namespace {

struct Page {
  std::string_view charSet;
  UINT number;
};

constexpr Page kPages[] = {
    {"us-ascii", 20127},  {"ascii", 20127},       {"utf-7", 65000},       {"latin1", 28591},
    {"koi8-r", 20866},    {"koi8-u", 21866},      {"shift_jis", 932},     {"sjis", 932},
    {"euc-jp", 20932},    {"iso-2022-jp", 50220}, {"euc-kr", 51949},      {"ks_c_5601-1987", 949},
    {"gb2312", 936},      {"gbk", 936},           {"gb18030", 54936},     {"big5", 950},
    {"tis-620", 874},     {"macintosh", 10000},   {"iso-2022-kr", 50225}, {"ibm850", 850},
    {"windows-874", 874}, {"ibm437", 437},        {"ibm852", 852},        {"ibm866", 866},
};

UINT NumberBehind(std::string_view name, std::string_view prefix) {
  UINT number = 0;
  if (!name.starts_with(prefix)) return 0;
  const char* const end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data() + prefix.size(), end, number);
  return error == std::errc() && stop == end ? number : 0;
}

/// The system's number for a set; 0 when it has none.
UINT PageOf(std::string_view charSet) {
  if (IsUtf8Name(charSet)) return CP_UTF8;
  const std::string name = ToLower(charSet);
  const auto* const found = std::ranges::find(kPages, std::string_view(name), &Page::charSet);
  if (found != std::end(kPages)) return found->number;
  if (const UINT part = NumberBehind(name, "iso-8859-"); part >= 1 && part <= 16) {
    return 28590 + part;
  }
  const UINT page = NumberBehind(name, "windows-");
  return page >= 1250 && page <= 1258 ? page : 0;
}

std::optional<std::wstring> Widen(std::string_view text, UINT page, DWORD flags) {
  const int size = static_cast<int>(text.size());
  std::wstring wide;
  if (size == 0) return wide;
  const int length = MultiByteToWideChar(page, flags, text.data(), size, nullptr, 0);
  wide.resize(static_cast<std::size_t>(std::max(length, 0)));
  if (length <= 0 ||
      MultiByteToWideChar(page, flags, text.data(), size, wide.data(), length) == 0) {
    return std::nullopt;
  }
  return wide;
}

std::optional<std::string> Narrow(const std::wstring& wide, UINT page) {
  const int size = static_cast<int>(wide.size());
  std::string text;
  if (size == 0) return text;
  const int length = WideCharToMultiByte(page, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
  text.resize(static_cast<std::size_t>(std::max(length, 0)));
  if (length <= 0 ||
      WideCharToMultiByte(page, 0, wide.data(), size, text.data(), length, nullptr, nullptr) == 0) {
    return std::nullopt;
  }
  return text;
}

// Some sets take no flags that forbid what only looks like a character, or take the lowest bits of
// a byte for the byte; the way back tells.
std::optional<std::string> Convert(std::string_view text, UINT from, UINT to) {
  if (from == 0 || to == 0 || IsValidCodePage(from) == 0 || IsValidCodePage(to) == 0) {
    return std::nullopt;
  }
  const auto wide = Widen(text, from, from == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0);
  auto converted = wide ? Narrow(*wide, to) : std::nullopt;
  if (!converted || Widen(*converted, to, 0) != wide || Narrow(*wide, from) != text) {
    return std::nullopt;
  }
  return converted;
}

}  // namespace

std::optional<std::string> FromUtf8BySystem(std::string_view utf8, std::string_view charSet) {
  return Convert(utf8, CP_UTF8, PageOf(charSet));
}

std::optional<std::string> ToUtf8BySystem(std::string_view text, std::string_view charSet) {
  return Convert(text, PageOf(charSet), CP_UTF8);
}

std::string SystemCharSet() {
  const UINT page = GetACP();
  if (page >= 1250 && page <= 1258) return "windows-" + std::to_string(page);
  const auto* const found = std::ranges::find(kPages, page, &Page::number);
  return std::string(found == std::end(kPages) ? kUtf8 : found->charSet);
}

}  // namespace netro
