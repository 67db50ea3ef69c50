// One probe of a watched host, by the class that speaks its protocol. Blocks; made to be run in a
// task.
#pragma once

#include <netro/Tls.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "diag/WatchEchoes.h"
#include "diag/WatchList.h"

namespace netro {

/// What a probe is made with.
struct WatchProbeTools {
  std::shared_ptr<WatchEchoes> echoes;
  std::shared_ptr<TlsProvider> tls;  // of Https
  std::chrono::milliseconds echoTimeout{300};
  std::int32_t packetSize = 32;
  std::chrono::seconds timeout{30};  // of all but echoes, without the lookup of the name
  std::function<void()> lookedUp;    // is called when the name is known, or nobody knows it
};

/// The name that has to be looked up; empty where there is an address, or no host.
std::string NameToLookUp(const WatchTarget& target);

/// Probes the host once. Throws nothing but std::bad_alloc.
ProbeResult ProbeHost(const WatchTarget& target, const WatchProbeTools& tools);

// What probes come to, for those who make them.
/// Of sockets or the system: this program has too little of something at present.
bool IsOwnLack(std::int32_t error);
ProbeResult LackOf(std::int32_t error);
ProbeResult FailureOf(std::string text);
ProbeResult SuccessAfter(std::chrono::nanoseconds time);
/// What a peer has said is kept for each host, and goes into logs and mails.
std::string HarmlessText(std::string text);

}  // namespace netro
