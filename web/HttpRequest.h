// Composes the text of one HTTP request (RFC 9112) from settings. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Url.h"
#include "web/HttpAuthorization.h"

namespace netro {

using HttpFields = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method;
  Url url;
  bool absoluteForm = false;  // for an HTTP proxy
  std::string token;
  std::optional<HttpCredentials> proxy;
  std::optional<HttpCredentials> server;
  HttpFields headers;                    // one that is sent already replaces that line
  std::optional<std::string_view> body;  // with it, the length is announced

  /// All up to the body.
  std::string ComposeHead() const;

 private:
  std::string Target() const;
  std::string HostAndPort() const;
};

/// What is wrong with added fields for a body of `bodySize` bytes, empty when nothing is: where a
/// request ends is told by the class alone (RFC 9112, section 6).
std::string FramingProblem(const HttpFields& fields, std::size_t bodySize);

}  // namespace netro
