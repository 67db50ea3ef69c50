#include "web/SetCookie.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "support/HttpDate.h"
#include "support/Text.h"

namespace netro {
namespace {

using std::chrono::sys_seconds;

constexpr std::size_t kLongestHost = 255;
constexpr sys_seconds kEndOfTime =
    std::chrono::sys_days(std::chrono::year(10000) / 1 / 1) - std::chrono::seconds(1);

/// What stands before the separator; it and the separator are taken off `text`.
std::string_view TakePart(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

/// Max-Age: digits, perhaps with "-" before them; too many are for ever.
std::optional<sys_seconds> ReadMaxAge(std::string_view text, sys_seconds now) {
  const bool negative = text.starts_with('-');
  const std::string_view digits = text.substr(negative ? 1 : 0);
  const bool plain = std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
  if (digits.empty() || !plain) return std::nullopt;
  std::int64_t seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (negative || (error == std::errc() && seconds == 0)) return sys_seconds::min();
  const bool late = error != std::errc() || seconds > (kEndOfTime - now).count();
  return late ? kEndOfTime : now + std::chrono::seconds(seconds);
}

/// The attributes; of one that is repeated the last counts, and Max-Age goes before Expires.
class Attributes {
 public:
  Attributes(SetCookie& cookie, sys_seconds now) : cookie_(cookie), now_(now) {}

  void Read(std::string_view text) {
    while (!text.empty()) {
      std::string_view attribute = TakePart(text, ';');
      const std::string name = ToLower(Trim(TakePart(attribute, '=')));
      const std::string value = Trim(attribute);
      if (value.size() <= kLongestAttribute) Set(name, value);
    }
    cookie_.expires = maxAge_ ? maxAge_ : expires_;
  }

 private:
  void Set(const std::string& name, const std::string& value) {
    if (name == "expires") {
      if (const auto date = ReadHttpDate(value)) expires_ = std::min(*date, kEndOfTime);
    } else if (name == "max-age") {
      if (const auto date = ReadMaxAge(value, now_)) maxAge_ = date;
    } else if (name == "domain") {
      if (!value.empty()) cookie_.domain = CookieHost(value.substr(value[0] == '.' ? 1 : 0));
    } else if (name == "path") {
      cookie_.path = value;
      if (!value.starts_with('/')) cookie_.path.reset();
    } else if (name == "secure") {
      cookie_.secure = true;
    } else if (name == "httponly") {
      cookie_.httpOnly = true;
    }
  }

  SetCookie& cookie_;
  sys_seconds now_;
  std::optional<sys_seconds> expires_;
  std::optional<sys_seconds> maxAge_;
};

}  // namespace

std::string CookieHost(std::string_view host) {
  host = host.substr(0, host.find('%'));
  if (host.ends_with('.')) host.remove_suffix(1);
  const bool isName = host.size() <= kLongestHost && host.find_first_of(" /\\@") == host.npos &&
                      !host.starts_with('.') && !host.ends_with('.');
  return isName ? ToLower(host) : std::string();
}

std::optional<SetCookie> ReadSetCookie(std::string_view field, sys_seconds now) {
  const std::string whole = Trim(field);
  std::string_view rest = whole;
  std::string_view pair = TakePart(rest, ';');
  if (HasControlCharacter(whole) || pair.find('=') == pair.npos) return std::nullopt;
  SetCookie cookie;
  cookie.name = Trim(TakePart(pair, '='));
  cookie.value = Trim(pair);
  const std::size_t size = cookie.name.size() + cookie.value.size();
  if (cookie.name.empty() || size > kLongestCookie) return std::nullopt;
  Attributes(cookie, now).Read(rest);
  return cookie;
}

}  // namespace netro
