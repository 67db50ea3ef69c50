// Sessions that can be resumed, by peer. All of them were verified under the provider's settings
// for the name in their key. A ticket of TLS 1.3 is given out once (RFC 8446, appendix C.4), an
// older session as often as it lives. Bounded; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "tls/OpenSslHandles.h"

namespace netro {

class SessionMemory {
 public:
  void Keep(const std::string& key, SslSession session);
  /// A session that is still good, or null.
  SslSession Take(const std::string& key);

 private:
  struct Peer {
    std::vector<SslSession> sessions;  // the newest last
    std::uint64_t used = 0;
  };
  void ForgetOldest();

  std::mutex mutex_;
  std::unordered_map<std::string, Peer> peers_;
  std::uint64_t clock_ = 0;
};

}  // namespace netro
