#include "web/HttpRedirect.h"

#include <algorithm>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kHarmless[] = {
    "Accept",        "Accept-Charset",      "Accept-Encoding",   "Accept-Language",
    "Cache-Control", "Content-Disposition", "Content-Encoding",  "Content-Language",
    "Content-Type",  "Connection",          "Date",              "DNT",
    "If-Match",      "If-Modified-Since",   "If-None-Match",     "If-Range",
    "Pragma",        "Range",               "If-Unmodified-Since", "User-Agent",
};

}  // namespace

std::optional<HttpRedirect> RedirectOf(std::int32_t status, const std::string& method) {
  switch (status) {
    case 301:
    case 302:
      // What every client has done with POST since before there was a rule.
      return method == "POST" ? HttpRedirect{"GET", false} : HttpRedirect{method, true};
    case 303:
      return HttpRedirect{method == "HEAD" ? "HEAD" : "GET", false};
    case 307:
    case 308:
      return HttpRedirect{method, true};
    default:
      return std::nullopt;
  }
}

bool MayLeaveOrigin(std::string_view fieldName) {
  return std::ranges::any_of(kHarmless, [&](std::string_view known) {
    return EqualsIgnoreCase(known, fieldName);
  });
}

}  // namespace netro
