// One host of a watcher's list: how it is called, where it is, and what kind of probe asks it. Pure
// text. Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace netro {

enum class WatchKind { Ping, Http, Https, Tcp, Smtp, Dns, Ntp };

struct WatchTarget {
  std::string name;
  std::string host;  // name, address or URL
  WatchKind kind = WatchKind::Ping;
  std::string kindText = "Ping";    // as reports call it: "Ping", "http", "tcp:22" ...
  std::int32_t port = 0;            // of Tcp, Smtp and Dns
  std::string question;             // of Dns: the name to ask for
  std::string text;                 // that the answer of Http, Https or Tcp must hold; may be empty
  std::int32_t lowestStatus = 200;  // of Http and Https
  std::int32_t highestStatus = 399;
  std::int32_t daysLeft = 0;  // of Https: the least that the certificate must have
  std::string parent;         // name of the host that it stands behind; may be empty

  bool operator==(const WatchTarget&) const = default;
};

/// Reads the kind ("Ping", "tcp:22 \"SSH-\"", "http 200-299"; empty: Ping) of a target whose host
/// is set. Returns the empty text, or why it cannot be used, which goes on after the place.
std::string ReadWatchKind(const std::string& kind, bool hasTls, WatchTarget& target);

/// Splits "host|kind" at the last bar, and reads both.
std::string ReadWatchTarget(const std::string& value, bool hasTls, WatchTarget& target);

/// The index of the target of this name, case ignored; the count of targets when there is none.
std::size_t FindWatchTarget(const std::vector<WatchTarget>& targets, const std::string& name);

/// The first target whose parent is not in the list, is itself behind it, or is given to the
/// uplink; the count of targets when all are good. `why` is what goes on after the target's name.
std::size_t FindBadParent(const std::vector<WatchTarget>& targets, const std::string& uplink,
                          std::string& why);

}  // namespace netro
