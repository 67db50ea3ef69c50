// One host of "netro ping" and how it has answered. Thread: any one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "terminal/TimeStatistics.h"

namespace netro::tool {

/// How one request has ended.
struct PingReply {
  std::int32_t sequence = 0;  // from 1 on
  std::int32_t status = 0;    // 0 a reply, else the IP status
  std::string from;           // who answered; empty when nobody did
  std::int32_t microSeconds = 0;
  std::int32_t ttl = 0;
  bool duplicate = false;  // the request has been answered before
  bool filtered = false;   // says a firewall
};

struct PingTarget {
  std::string host;              // as the user wrote it
  std::string address;           // empty when the name has none
  std::int32_t errorNumber = 0;  // of the lookup, or the status of the last failure
  std::string errorText;
  std::int32_t sent = 0;
  std::int32_t failed = 0;
  std::int32_t duplicates = 0;
  TimeStatistics times;
  std::vector<PingReply> replies;  // if they are kept

  std::int32_t Received() const { return times.Count(); }
  bool HasAnswered() const { return times.Count() > 0; }
  /// Requests that were still on their way at the end.
  std::int32_t NotAwaited() const { return sent - failed - times.Count(); }
  /// Of those whose end is known; -1 without any.
  double LossPercent() const;
  /// "localhost (127.0.0.1)"
  std::string Label() const;
};

}  // namespace netro::tool
