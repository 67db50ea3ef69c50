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
  HttpFields headers;  // one that is sent already replaces that line
  std::optional<std::uint64_t> bodyLength;
  bool chunked = false;  // a body of a length that nobody knows
  bool bareEnd = false;  // without the line end too much that GET and HEAD otherwise have

  /// All up to the body.
  std::string ComposeHead() const;

 private:
  std::string Target() const;
};

/// As they stand in Host: an IPv6 address in brackets and without its zone, the port only when it
/// is not the protocol's own.
std::string HostField(const Url& url);
/// The same with the port in any case.
std::string HostAndPort(const Url& url);

/// True for an added field that a proxy is meant to get, and nobody behind it.
bool IsForProxy(const HttpFields::value_type& field);

/// What is wrong with added fields for a body of `bodySize` bytes (nothing: nobody knows), empty when nothing is: where a
/// request ends is told by the class alone (RFC 9112, section 6).
std::string FramingProblem(const HttpFields& fields, std::optional<std::uint64_t> bodySize);

}  // namespace netro
