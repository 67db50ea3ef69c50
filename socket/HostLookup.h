// Name lookup as the sockets need it. Connecting needs names and the DNS engine needs sockets; this
// interface, which dns/ implements, breaks the circle.
#pragma once

#include <netro/AddressPreference.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Address.h"
#include "platform/Clock.h"
#include "socket/Wait.h"

namespace netro {

/// How a class looks names up.
struct LookupSettings {
  /// "host[:port]" separated by commas; empty: the system's resolver; none: the default servers.
  std::optional<std::string> servers;
  AddressPreferenceEnum preference = preferIPv4;
};

struct LookupAnswer {
  std::string text;  // the first address, or the name of a reverse lookup; empty on failure
  std::int32_t error = 0;
  std::vector<IpAddress> addresses;  // in the order in which to use them; empty on failure
  bool mayHaveIPv6 = false;          // which was not asked for

  /// Those of a lookup that has found these, which are not empty.
  static LookupAnswer Of(std::vector<IpAddress> found);
  IpAddress First() const { return addresses.empty() ? IpAddress() : addresses.front(); }
};

/// A lookup by the system's resolver that nobody waits for. Its owner looks at `done` now and then;
/// the loop it began on is woken when it is set.
struct LookupTask {
  std::string address;
  LookupAnswer answer;
  bool isCached = false;  // the answer came from the cache
  std::atomic<bool> done{false};
};

/// The names of one thread, with the cache that all its objects share.
class HostLookup {
 public:
  virtual ~HostLookup() = default;

  /// Looks up a name, or the name of an address. Blocks, keeping the loop alive. Errors: 59 no such
  /// host, 11004 it has no address of the wanted kind, 11002 nobody could tell, 9999 cancelled,
  /// 10002 the deadline came first, 10022 the servers cannot be read, 10055 no memory or
  /// descriptors.
  virtual LookupAnswer Lookup(std::string address, const LookupSettings& settings,
                              const CancelMark& mark, TimePoint deadline) = 0;
  /// Begins to look up a name by the cache, the hosts file and the system's resolver, without
  /// waiting. Null when too many lookups are under way.
  virtual std::shared_ptr<LookupTask> Begin(std::string name, AddressPreferenceEnum preference) = 0;
  /// The answer of a task that is done; goes into the cache.
  virtual LookupAnswer Finish(const LookupTask& task) = 0;
  /// The system's servers that answer an echo. Blocks for half a second at most, and only until the
  /// list is known.
  virtual const std::string& DefaultServers(const CancelMark& mark) = 0;

  virtual void Clear() = 0;
  virtual std::int32_t Count() const = 0;
  /// Number of entries; -1 when the file cannot be used.
  virtual std::int32_t Save(const std::string& fileName) = 0;
  virtual std::int32_t Restore(const std::string& fileName) = 0;

  /// Whether an expired entry counts where no server answers, and whether it did last.
  virtual bool ServeStale() const = 0;
  virtual void ServeStale(bool value) = 0;
  virtual bool WasStale() const = 0;
};

/// The lookup of the calling thread.
HostLookup& DefaultHostLookup();

/// The text that goes with the result of a lookup; empty for 0.
std::string LookupErrorText(std::int32_t error);

/// The addresses of a host to connect to: an address as it is, a name by Lookup. "255.255.255.255"
/// is nobody's (59).
LookupAnswer ResolveHost(const std::string& host, const LookupSettings& settings,
                         const CancelMark& mark, TimePoint deadline);

/// The error number of a connection that failed for the lookup's: 11001 for 59.
std::int32_t ConnectError(std::int32_t lookupError);

}  // namespace netro
