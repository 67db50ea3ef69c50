// One question of "netro dns --trace": from the servers of the root zone down to those that know.
// Thread: the loop's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dns/Delegation.h"
#include "dns/DnsLookup.h"
#include "terminal/Batch.h"

namespace netro::tool {

/// One server asked once.
struct TraceStep {
  ZoneQuestion question;
  std::size_t depth = 0;   // 1 and more: for the address of a server that was named without one
  std::string serverName;  // empty for the one of --server
  std::string server;      // with its port
  bool overTcp = false;
  double seconds = 0;
  std::optional<ReplyHeader> header;
  ZoneReply reply;
};

enum class TraceEnd { Answer, NoRecord, NoName, DeadEnd, Stopped };

struct DnsTrace {
  explicit DnsTrace(DnsRequest toAsk);

  const DnsRequest request;
  const std::string name;  // as ComparedName gives it
  std::vector<TraceStep> steps;
  std::vector<std::string> notes;  // about what was not followed
  std::vector<DNSCLS> answer;
  TraceEnd end = TraceEnd::Stopped;
  std::int32_t errorNumber = 0;
  std::string errorText;
  double seconds = 0;
};

/// Goes down as far as it gets; ends with 9999 when the batch is stopped, with 10002 at the time
/// limit.
void Follow(DnsTrace& trace, const Batch& batch);

}  // namespace netro::tool
