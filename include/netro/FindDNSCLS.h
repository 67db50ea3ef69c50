// FindDNSCLS: the DNS servers and the domain that this system is configured with.
//
// Reads the resolver configuration (resolv.conf: "nameserver" lines in their order; the last of
// "domain" and "search", its first word); where it names only the local stub, the servers behind
// the stub. What was found is kept; while nothing is found, every read
// looks again. Sends nothing, except for IsIPReachable.
//
// Thread: as SocketCls.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace netro {

class NETRO_EXPORT FindDNSCLS {
 public:
  /// The addresses, and one empty element behind them.
  const std::vector<std::string>& Servers() const;
  /// The number of servers.
  std::int32_t Count() const;
  /// The domain of this computer, as the system says; empty when it says none.
  const std::string& LocalDomain() const;
  /// The last two labels of LocalDomain.
  const std::string& RootDomain() const;
  /// True when the system's resolver configuration can be read.
  bool CanUseIPHlpApi() const;

  /// True when `IP` answers one echo within a second, see SocketCls::IsIPReachable. Blocks, keeping
  /// the loop alive.
  bool IsIPReachable(const std::string& IP) const;

  /// Forgets what was found: the next read looks again. On the object's thread; it ends nothing.
  void Kill();

 private:
  struct Found {
    std::vector<std::string> servers{std::string()};
    std::int32_t count = 0;
    std::string localDomain;
    std::string rootDomain;
    bool readable = false;
  };
  const Found& Discover() const;

  mutable Found found_;
};

}  // namespace netro
