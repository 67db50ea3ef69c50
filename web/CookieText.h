// The text format in which programs share cookies: a line each, of seven columns with tabs between
// them: domain, whether it holds for the hosts below, path, whether it is Secure, the date in
// seconds since 1970 (0: none), name, value. "#HttpOnly_" may precede a line; other lines with "#"
// are comments. Pure. Thread: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "web/CookieStore.h"

namespace netro {

std::string WriteCookies(const std::vector<const Cookie*>& cookies);

struct CookiesResult {
  std::vector<Cookie> cookies;
  std::string error;  // names the line that is no cookie, and why, without its value
};

/// Lines end in LF or CR LF.
CookiesResult ReadCookies(std::string_view text);

}  // namespace netro
