// Composes the text of one HTTP request (RFC 9112) from settings. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/Url.h"
#include "web/HttpChallenge.h"

namespace netro {

/// Credentials that go with a request, and the challenge that they answer.
struct HttpCredentials {
  std::string user;
  std::string password;
  HttpChallenge challenge;
};

struct HttpRequest {
  std::string method;
  Url url;
  bool absoluteForm = false;  // for an HTTP proxy
  std::string token;
  std::optional<HttpCredentials> proxy;
  std::optional<HttpCredentials> server;
  std::vector<std::pair<std::string, std::string>> headers;
  std::optional<std::string> body;  // with it, the length is announced

  std::string Compose() const;

 private:
  std::string Target() const;
  std::string HostAndPort() const;
  std::string Authorization(const HttpCredentials& credentials) const;
  std::string DigestParameters(const HttpCredentials& credentials) const;
};

}  // namespace netro
