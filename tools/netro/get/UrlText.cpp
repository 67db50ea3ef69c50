// What the text of a URL tells.

#include "get/UrlText.h"

#include <netro/ShownText.h>

#include <algorithm>
#include <cstddef>
#include <regex>

namespace netro::tool {
namespace {

struct Authority {
  std::size_t begin;
  std::size_t end;
};

Authority AuthorityOf(const std::string& url) {
  const std::size_t protocol = url.find("://");
  const std::size_t begin = protocol == url.npos ? 0 : protocol + 3;
  return {begin, std::min(url.find_first_of("/?#", begin), url.size())};
}

}  // namespace

bool HasCredentials(const std::string& url) {
  const auto [begin, end] = AuthorityOf(url);
  return url.substr(begin, end - begin).find('@') != url.npos;
}

std::string WithoutCredentials(const std::string& url) {
  const bool isPath = url.starts_with('/') && !url.starts_with("//");
  return isPath ? url : ShownUrl(url);
}

std::string ProtocolOf(const std::string& url) {
  const std::size_t end = url.find("://");
  std::string protocol = end == url.npos ? "http" : url.substr(0, end);
  for (char& c : protocol) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  return protocol;
}

std::string HostOf(const std::string& url) {
  const std::string shown = WithoutCredentials(url);
  const auto [begin, end] = AuthorityOf(shown);
  const std::string authority = shown.substr(begin, end - begin);
  if (!authority.starts_with('[')) return authority.substr(0, authority.find(':'));
  return authority.substr(1, std::min(authority.find(']'), authority.size()) - 1);
}

std::string WithoutTokens(const std::string& url) {
  constexpr auto kFlags = std::regex::icase | std::regex::optimize;
  static const std::regex secret(
      "([?&;#][^=&]*(auth|code|cookie|cred|key|pass|pwd|secret|sess|sig|token)[^=&]*=)[^&#]*",
      kFlags);
  return std::regex_replace(url, secret, "$1***");
}

std::string FileNameOf(const std::string& url) {
  std::string path = url.substr(AuthorityOf(url).end);
  path.erase(std::min(path.find_first_of("?#"), path.size()));
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.empty() || name == "." || name == ".." ? "index.html" : name;
}

}  // namespace netro::tool
