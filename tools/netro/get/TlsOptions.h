// How "netro get" protects https. Thread: any one.
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

void DeclareTls(CLI::App& options, TlsOptions& values);

/// The provider under these settings; null where this program was built without TLS. Throws
/// UsageError when there is an option that cannot be followed.
std::shared_ptr<TlsProvider> ReadTls(const TlsOptions& options);

/// What a user can do about a failure of TLS; empty for other errors.
std::string TlsAdvice(std::int32_t error, const std::string& url);

}  // namespace netro::tool
