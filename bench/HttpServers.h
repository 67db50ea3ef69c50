// The local servers that the HTTP benchmarks fetch from: nginx for the small answer and the bodies
// of known length, an own one for chunked and for unbounded bodies, and for all when nginx is
// missing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "bench/Process.h"

namespace netro::bench {

enum class BodyKind {
  Length,      ///< Content-Length
  Chunked,     ///< chunks of 4 KiB
  UntilClose,  ///< ends with the connection
};

class HttpServers {
 public:
  /// Starts the servers; ends the program when that fails.
  HttpServers();

  /// An answer of 100 bytes.
  std::string SmallUrl() const;
  /// The same over TLS, and a body of known length; empty where nginx or openssl is missing.
  std::string SecureUrl(const std::string& path = "/small") const;
  /// Whom to trust for it.
  std::string TrustFile() const { return folder_.Path() + "/trust.pem"; }
  /// An answer of type text/plain with a body of so many MiB.
  std::string BodyUrl(BodyKind kind, int mebibytes) const;
  /// Where downloads go; removed at the end.
  const std::string& Folder() const { return folder_.Path(); }
  /// What answers SmallUrl and the bodies of known length.
  const char* Name() const { return nginx_ ? "nginx" : "the benchmark's own server"; }

 private:
  void StartOwn();
  void StartNginx();

  TempFolder folder_;
  std::uint16_t ownPort_ = 0;
  std::unique_ptr<ChildProcess> own_;
  std::uint16_t nginxPort_ = 0;
  std::uint16_t securePort_ = 0;
  std::unique_ptr<ChildProcess> nginx_;
};

/// The sizes of bodies that nginx serves, in MiB; the own server takes any.
inline constexpr int kBodySizes[] = {16, 64, 256, 1024};

}  // namespace netro::bench
