// The proxies that the environment names, as other programs read them. Thread: any.
#pragma once

#include <string>

namespace netro::tool {

/// The proxy for a URL: the value of http_proxy (in lower case only: servers hand a header to CGI
/// programs in the other name), https_proxy or HTTPS_PROXY, else all_proxy or ALL_PROXY. Empty when
/// there is none, or when no_proxy or NO_PROXY names the host: a list, separated by commas or
/// blanks, of "*", addresses, and domains with all hosts below them.
std::string EnvironmentProxy(const std::string& protocol, const std::string& host);

/// True when the list names the host.
bool IsExempt(const std::string& list, const std::string& host);

}  // namespace netro::tool
