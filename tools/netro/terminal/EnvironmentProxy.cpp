// The proxies that the environment names.

#include "terminal/EnvironmentProxy.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace netro::tool {
namespace {

std::string FirstSet(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

bool SameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool Covers(std::string_view entry, std::string_view host) {
  while (entry.starts_with('.')) entry.remove_prefix(1);
  if (entry.starts_with('[') && entry.ends_with(']')) entry = entry.substr(1, entry.size() - 2);
  if (entry.empty()) return false;
  if (entry == "*" || SameText(entry, host)) return true;
  if (host.size() <= entry.size()) return false;
  const std::size_t labels = host.size() - entry.size();
  return host[labels - 1] == '.' && SameText(entry, host.substr(labels));
}

}  // namespace

bool IsExempt(const std::string& list, const std::string& host) {
  constexpr std::string_view kSeparators = ", \t";
  std::string_view rest = list;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(kSeparators), rest.size());
    if (Covers(rest.substr(0, end), host)) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

std::string EnvironmentProxy(const std::string& protocol, const std::string& host) {
  if (IsExempt(FirstSet({"no_proxy", "NO_PROXY"}), host)) return {};
  const std::string own = protocol == "https" ? FirstSet({"https_proxy", "HTTPS_PROXY"})
                                              : FirstSet({"http_proxy"});
  return own.empty() ? FirstSet({"all_proxy", "ALL_PROXY"}) : own;
}

}  // namespace netro::tool
