#include "web/CookieText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "support/Text.h"
#include "web/SetCookie.h"

namespace netro {
namespace {

using std::chrono::seconds;
using std::chrono::sys_seconds;

constexpr std::string_view kHead =
    "# Netscape HTTP Cookie File\n# Written by NetroClasses. What is in here lets others log "
    "in.\n\n";
constexpr std::string_view kHttpOnly = "#HttpOnly_";
constexpr std::int64_t kEndOfTime = 253402300799;  // the last second of the year 9999

const char* Word(bool value) { return value ? "TRUE" : "FALSE"; }

/// False for any other word than the two.
bool ReadWord(std::string_view text, bool& value) {
  value = EqualsIgnoreCase(text, "TRUE");
  return value || EqualsIgnoreCase(text, "FALSE");
}

bool ReadDate(std::string_view text, sys_seconds& date) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  date = sys_seconds(seconds(std::clamp<std::int64_t>(number, -1, kEndOfTime)));
  return true;
}

/// Fills `cookie`; returns what is wrong, or null.
const char* ReadColumns(const std::vector<std::string>& columns, Cookie& cookie) {
  bool below = false;
  // Many editors drop the tab before an empty value.
  if (columns.size() != 7 && columns.size() != 6) return "it does not have seven columns";
  const std::string& domain = columns[0];
  cookie.domain = CookieHost(std::string_view(domain).substr(domain.starts_with('.') ? 1 : 0));
  if (cookie.domain.empty()) return "the first column is no domain";
  if (!ReadWord(columns[1], below)) return "the second column is neither TRUE nor FALSE";
  cookie.path = columns[2];
  if (!cookie.path.starts_with('/')) return "the path does not begin with \"/\"";
  if (!ReadWord(columns[3], cookie.secure)) return "the fourth column is neither TRUE nor FALSE";
  if (!ReadDate(columns[4], cookie.expires)) return "the date is no number";
  cookie.name = columns[5];
  cookie.value = columns.size() == 7 ? columns[6] : std::string();
  if (cookie.name.empty()) return "the name is empty";
  if (cookie.name.find_first_of("=;") != std::string::npos) return "the name has \"=\" or \";\"";
  if (cookie.value.find(';') != std::string::npos) return "the value has a \";\"";
  if (cookie.name.size() + cookie.value.size() > kLongestCookie) return "the cookie is too long";
  const bool alone = cookie.domain.find('.') == std::string::npos || IsAddressHost(cookie.domain);
  cookie.hostOnly = !below || alone;
  return nullptr;
}

const char* ReadLine(std::string_view line, Cookie& cookie) {
  cookie.httpOnly = line.starts_with(kHttpOnly);
  if (cookie.httpOnly) line.remove_prefix(kHttpOnly.size());
  const std::vector<std::string> columns = Split(line, '\t');
  if (std::ranges::any_of(columns, HasControlCharacter)) return "it has a control character";
  return ReadColumns(columns, cookie);
}

bool IsComment(std::string_view line) {
  return Trim(line).empty() || (line.starts_with('#') && !line.starts_with(kHttpOnly));
}

}  // namespace

std::string WriteCookies(const std::vector<const Cookie*>& cookies) {
  std::string text(kHead);
  for (const Cookie* const cookie : cookies) {
    if (cookie->httpOnly) text += kHttpOnly;
    text += cookie->hostOnly ? "" : ".";
    text += cookie->domain + '\t' + Word(!cookie->hostOnly) + '\t' + cookie->path + '\t' +
            Word(cookie->secure) + '\t' +
            std::to_string(cookie->expires.time_since_epoch().count()) + '\t' + cookie->name +
            '\t' + cookie->value + '\n';
  }
  return text;
}

CookiesResult ReadCookies(std::string_view text) {
  CookiesResult result;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (IsComment(line)) continue;
    Cookie cookie;
    if (const char* const wrong = ReadLine(line, cookie)) {
      return {{}, "Line " + std::to_string(number) + " is no cookie: " + wrong + "."};
    }
    result.cookies.push_back(std::move(cookie));
  }
  return result;
}

}  // namespace netro
