// Reads the value of a Set-Cookie field (RFC 6265, section 5.2). Pure. Thread: any.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// What a server asked for; whether it may is for the store to say.
struct SetCookie {
  std::string name;
  std::string value;
  std::optional<std::chrono::sys_seconds> expires;  // none: until the session ends
  std::optional<std::string> domain;                // in lower case, without dots at its ends
  std::optional<std::string> path;                  // begins with "/"
  bool secure = false;
  bool httpOnly = false;
};

/// Of a cookie's name and value together, and of one attribute.
constexpr std::size_t kLongestCookie = 4096;
constexpr std::size_t kLongestAttribute = 1024;

/// Nothing for a field without a name, with a control character, or too long.
std::optional<SetCookie> ReadSetCookie(std::string_view field, std::chrono::sys_seconds now);

/// A host as cookies compare it: in lower case, without a dot at its end or the zone of an address.
/// Empty for what is no name, as ".example" and "example..", or is too long for one.
std::string CookieHost(std::string_view host);

}  // namespace netro
