// What an answer that points elsewhere makes of a request (RFC 9110, section 15.4). Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

struct HttpRedirect {
  std::string method;     // of the next request
  bool keepsBody = true;  // it has the same body
};

/// Nothing for a status that is no redirect, or one that leaves the choice to the user (300).
std::optional<HttpRedirect> RedirectOf(std::int32_t status, const std::string& method);

/// False for a field that the caller has added and that another origin must not get: all but those
/// that say what is wanted and in which form. What a name means that is not known here, nobody can
/// tell.
bool MayLeaveOrigin(std::string_view fieldName);

}  // namespace netro
