// DNS messages (RFC 1035, section 4): composing queries and reading replies. Any thread.
#pragma once

#include <netro/DNSCLS.h>
#include <netro/EDNSCLS.h>
#include <netro/Types.h>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>

#include "dns/DnsName.h"

namespace netro {

/// What to ask for.
struct DnsQuestion {
  std::string domain;  // in the form below; for PTR also a dotted address
  std::int32_t type = TYPE_A;
  std::uint16_t classNumber = 1;
  bool recursion = true;
  NameForm form = NameForm::Plain;
  std::uint16_t id = 25;
  std::uint16_t udpSize = 0;  // 0: no OPT record
  bool dnssecOk = false;
};

/// The name that the question asks for.
std::string QuestionName(const DnsQuestion& question);

/// The query message; none when the domain is no name.
std::optional<Bytes> ComposeQuery(const DnsQuestion& question);

/// True when a message is a reply, has the query's ID, and repeats its question.
bool AnswersQuery(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query);

/// The same for the messages of a zone transfer behind the first one, which may always leave the
/// question out.
bool ContinuesAnswer(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query);

/// True for a reply without a question whose response code tells why: a server that has understood
/// nothing sends such ones. Only for connections, which no stranger can write to.
bool IsBareRefusal(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query);

/// The two flag bytes of a message.
struct DnsFlags {
  std::uint8_t first = 0;
  std::uint8_t second = 0;

  bool IsAuthoritative() const { return (first & 4) != 0; }
  bool IsTruncated() const { return (first & 2) != 0; }
  bool IsRecursionAvailable() const { return (second & 128) != 0; }
  bool HasReservedBit() const { return (second & 64) != 0; }
  std::int32_t Code() const { return second & 15; }
};

/// The records of each section in the order in which they came.
using DnsRecords = std::array<std::deque<DNSCLS>, 3>;

/// How a reply is to be read.
struct DnsReading {
  NameForm form = NameForm::Plain;
  bool takeOpt = false;       // the OPT record becomes `opt` instead of an additional record
  bool onlyInternet = false;  // records of other classes are left out
};

/// One or several replies.
struct DnsReply {
  enum Section { Answer, Authority, Additional, Sections };

  explicit DnsReply(const DnsReading& how = {}) : reading(how) {}

  std::size_t Count() const {
    return records[Answer].size() + records[Authority].size() + records[Additional].size();
  }

  /// The response code, with the bits that are in the OPT record.
  std::int32_t Code() const { return flags.Code() | (opt ? opt->ExtendedRCODE() << 4 : 0); }

  DnsReading reading;
  DnsFlags flags;
  std::optional<EDNSCLS> opt;
  DnsRecords records;
};

/// Reads a message: sets the flags, appends the records. When it is malformed the flags are set (as
/// far as there are any), no record is appended, and the result is false.
bool ReadReply(std::span<const std::uint8_t> message, DnsReply& reply);

}  // namespace netro
