// How connections are protected by TLS, in the commands that can. Thread: any one.
#pragma once

#include <netro/Tls.h>

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct TlsOptions {
  std::string authority;
  std::string certificate;
  std::string key;
  std::vector<std::string> pins;
  std::string leastVersion;
  bool insecure = false;
};

void DeclareTls(CLI::App& options, TlsOptions& values, const char* group);

/// The provider under these settings; null where this program was built without TLS. Throws
/// UsageError when there is an option that cannot be followed.
/// `alpn`: the protocols to name (RFC 7301).
std::shared_ptr<TlsProvider> ReadTls(const TlsOptions& options,
                                     const std::vector<std::string>& alpn = {});

/// What a user can do about a failure of TLS; empty for other errors. `wanted`: the connection was to
/// be protected.
std::string TlsAdvice(std::int32_t error, bool wanted);

}  // namespace netro::tool
