// ICMP messages and IP packets as the tests send them, right or wrong. Shares nothing with the
// library. Any thread.
#pragma once

#include <string>

namespace netro::testkit {

/// The message with its checksum (RFC 1071) in bytes 2 and 3; `before` is counted as well.
std::string WithIcmpChecksum(std::string message, const std::string& before = {});

/// An echo message: type 8 asks, type 0 replies; with IPv6 these are 128 and 129.
std::string EchoMessage(int type, int identifier, int sequence, const std::string& data);

/// An error message that quotes a packet; with `extensions` behind it, which need 128 bytes of it
/// and a length, of RFC 4884 in units of 4 or 8 bytes.
std::string IcmpErrorMessage(int type, int code, std::string quoted,
                             const std::string& extensions = {});

/// The extension structure with one object of MPLS labels (RFC 4950), each of four bytes.
std::string MplsExtensions(const std::string& labels);

struct IpFields {
  std::string source;  // both of the same family
  std::string destination;
  int ttl = 64;
  int protocol = 1;        // of IPv6 that of the options, or of ICMP where there are none
  int fragmentOffset = 0;  // of 8 bytes each; of IPv6 it stands in the options
  std::string options;     // a multiple of four bytes; of IPv6 whole extension headers
};

/// A packet with its header: RFC 791, whose checksum is left for the system to fill in; or RFC
/// 8200, with the checksum of its ICMP message put right.
std::string IpBytes(const IpFields& fields, const std::string& payload);

}  // namespace netro::testkit
