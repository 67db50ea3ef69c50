// What redirects need of URLs: references against a base (RFC 3986, section 5.2), origins (RFC
// 6454), and URLs as text without the secrets in them. Thread: any.
#pragma once

#include <netro/ShownText.h>  // ShownUrl

#include <cstdint>
#include <string>
#include <string_view>

#include "support/Url.h"

namespace netro {

/// The URL that `reference` means inside of `base`, as RFC 3986 has it, strictly. `base` begins
/// with a scheme, as UrlText writes it. Takes any text; whether the result is a URL is for SplitUrl
/// to say.
std::string ResolveReference(std::string_view base, std::string_view reference);

/// 443 for https, 80 for all others.
std::int32_t DefaultPort(std::string_view protocol);

/// The port that was given, else the protocol's own; SplitUrl has 80 for all.
std::int32_t EffectivePort(const Url& url);

/// True when protocol, host (in whatever case) and port are the same.
bool SameOrigin(const Url& a, const Url& b);

/// "https://host:8443/path?query", without user information; the port only when it is not the
/// protocol's own. Path and query are as they were given.
std::string UrlText(const Url& url);

}  // namespace netro
