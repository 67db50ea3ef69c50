// dig's replies as the measure of the DNS client. Thread: the test's.
#pragma once

#include <netro/DNSCLS.h>
#include <netro/QueryDNSCLS.h>

#include <array>
#include <string>
#include <vector>

namespace netro::interop {

/// Name, time to live and type of records, one text each, in sorted order: the order within a
/// section is the server's to choose.
using Records = std::vector<std::string>;
/// Answer, authority, additional.
using Sections = std::array<Records, 3>;

struct DigReply {
  std::string status;  // "NOERROR"
  std::string flags;   // " qr aa rd"
  Sections sections;

  bool HasFlag(const std::string& flag) const;
};

/// Asks the server at a port of 127.0.0.1 with the words of a dig command; they may hold several
/// questions, and each gives a reply. Without EDNS, as the client asks. The reply of a zone
/// transfer is its records, without status and flags.
std::vector<DigReply> Dig(int port, const std::vector<std::string>& words);

/// The client's records in the same form.
Sections SectionsOf(const QueryDNSCLS& dns);

}  // namespace netro::interop
