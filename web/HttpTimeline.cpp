#include "web/HttpTimeline.h"

#include <algorithm>

#include "support/Text.h"
#include "support/UrlReference.h"

namespace netro {
namespace {

constexpr std::string_view kSecretWords[] = {"auth", "cookie",   "cred", "key",  "pass",
                                             "pwd",  "secret",   "sess", "sign", "token",
                                             "code", "sig"};

std::string ShownParameter(std::string_view parameter) {
  const auto equals = parameter.find('=');
  if (equals == std::string_view::npos || !IsSecretName(parameter.substr(0, equals))) {
    return std::string(parameter);
  }
  return std::string(parameter.substr(0, equals + 1)) + "***";
}

}  // namespace

bool IsSecretName(std::string_view name) {
  const std::string lower = ToLower(name);
  return std::ranges::any_of(kSecretWords, [&](std::string_view word) {
    return lower.find(word) != std::string::npos;
  });
}

std::string WithoutSecretParameters(std::string url) {
  const auto query = url.find('?');
  if (query == std::string::npos) return url;
  std::string shown = url.substr(0, query);
  char before = '?';
  for (const std::string& parameter : Split(std::string_view(url).substr(query + 1), '&')) {
    shown += before + ShownParameter(parameter);
    before = '&';
  }
  return shown;
}

std::string WithoutSecrets(std::string_view url) { return WithoutSecretParameters(ShownUrl(url)); }

}  // namespace netro
