// The zones that the tests let BIND serve, and what there is to ask in them. Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace netro::interop {

struct Question {
  std::string name;
  std::int32_t type;
};

/// Time to live, SOA and NS records, and the server's address: the first lines of each zone.
extern const char kZoneHead[];

/// For "example": records of every type that BIND accepts, those with properties or a text of their
/// own and those that are dumped. The owners begin with "t" and the number of the type.
extern const char kDecodedTypes[];
extern const char kDumpedTypes[];
/// What to ask for them: each owner once.
std::vector<Question> QuestionsOf(const char* table);

/// For "example": aliases, a referral, a wildcard and such.
extern const char kOtherNames[];
/// For "example": two sets of records that do not fit into a datagram of 512 bytes.
std::string LargeSets();

/// For "1.10.in-addr.arpa", of a person whose mailbox has a dot in it.
extern const char kReverseZone[];

/// A zone of "h0", "h1" and so on, each with its own address.
std::string HostZone(std::uint32_t count);
std::string HostAddress(std::uint32_t number);

}  // namespace netro::interop
