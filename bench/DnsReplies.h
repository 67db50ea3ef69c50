// The replies of the benchmark's DNS server as bytes (RFC 1035, section 4).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netro::bench {

inline constexpr std::uint16_t kTypeA = 1;
inline constexpr std::uint16_t kTypeMx = 15;
inline constexpr std::uint16_t kTypeAxfr = 252;
inline constexpr std::uint16_t kTypeAll = 255;

/// Resource records. Their owners and the names in them point to the question's name, which always
/// stands at the same place.
struct Records {
  std::string bytes = {};
  int count = 0;
};

Records OneAddress();

/// As many as fit into a message over TCP: A or MX records alone for these types, else A, AAAA, NS,
/// CNAME, MX, TXT and SRV records in turn.
Records ManyRecords(std::uint16_t type);

/// For a zone transfer: the SOA record, and the A records of so many hosts from `first` on.
Records ZoneStart();
Records ZoneHosts(int first, int count);

/// The question of a query: name, type, class; empty when the query is cut short.
std::string_view QuestionOf(std::string_view query);
std::uint16_t TypeOf(std::string_view question);

/// The reply to a query, with its question.
std::string ComposeReply(std::string_view query, const Records& answers);
/// The same with its length in front, for TCP.
std::string ComposeStreamReply(std::string_view query, const Records& answers);

}  // namespace netro::bench
