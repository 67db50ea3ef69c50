// What the reply of a name server says to who goes from the root down to a name. What it holds is
// hostile: it counts only as far as its sender has a say. Pure; thread: any.
#pragma once

#include <netro/QueryDNSCLS.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro::tool {

struct NameServer {
  std::string name;                    // as ComparedName gives it
  std::vector<std::string> addresses;  // none: to be looked up
};

/// What is asked of the servers of a zone. Names are as ComparedName gives them.
struct ZoneQuestion {
  std::string name;
  QueryEnum type = TYPE_A;
  std::string zone;
};

enum class ReplyKind {
  Answer,
  NoRecord,  // the name has none of this type
  NoName,
  Referral,
  Useless,  // another server may know more
};

struct ZoneReply {
  ReplyKind kind = ReplyKind::Useless;
  std::string why;  // of a useless one
  // Of a referral.
  std::string zone;
  std::vector<NameServer> servers;  // the first 20
  std::vector<DNSCLS> records;      // which name them
  std::size_t leftOut = 0;
};

/// A name of a record in small letters with a dot at its end.
std::string ComparedName(std::string_view name);

/// Whether a name is the zone's or below it.
bool IsWithin(std::string_view name, std::string_view zone);

/// Reads the last reply of `query`, which is of a server of this zone. A referral counts when it
/// leads to a zone below this one that the name is in; addresses for its servers count when these
/// have names in this zone.
ZoneReply ReadZoneReply(const QueryDNSCLS& query, const ZoneQuestion& question);

/// The addresses of `name` among records.
std::vector<std::string> AddressesOf(std::string_view name, const std::vector<DNSCLS>& records);

}  // namespace netro::tool
