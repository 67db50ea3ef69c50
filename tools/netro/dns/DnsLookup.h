// One question of "netro dns", asked with QueryDNSCLS, and its outcome. Thread: the loop's.
#pragma once

#include <netro/QueryDNSCLS.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dns/DnsOptions.h"
#include "terminal/Batch.h"

namespace netro::tool {

/// What the reply's header tells beside the properties of QueryDNSCLS (RFC 1035, section 4.1.1).
struct ReplyHeader {
  std::string status;              // "NXDOMAIN"; that of the last message of a zone
  std::vector<std::string> flags;  // "aa", "tc", "rd", "ra", "ad", "cd"
};

/// The records are those of the query object.
struct DnsResult {
  std::string server;  // the one asked last, with its port
  std::vector<std::string> silentServers;
  bool overTcp = false;
  bool wasTruncated = false;  // over UDP, and asked again
  std::int32_t errorNumber = 0;
  std::string errorText;
  double seconds = 0;
  std::optional<ReplyHeader> header;  // of the reply, if there was one
};

struct DnsLookup {
  explicit DnsLookup(DnsRequest toAsk);

  const DnsRequest request;
  QueryDNSCLS query;
  DnsResult result;  // a cancelled one until it has ended
};

/// Gives the query all that the request says but for the server.
void Prepare(QueryDNSCLS& query, const DnsRequest& request);

/// None when no reply came.
std::optional<ReplyHeader> HeaderOf(const QueryDNSCLS& query);

/// Asks what the request says; ends with 9999 when the batch is stopped, with 10002 at the time
/// limit.
void Resolve(DnsLookup& lookup, const Batch& batch);

/// The name that was asked for, as it went out; as it was given when nothing was sent.
std::string QuestionName(const QueryDNSCLS& query);

/// True when a section holds a record.
inline bool HasRecords(const QueryDNSCLS& query) { return query.CountAll() > 0; }

}  // namespace netro::tool
