// ICMP messages and IP packets as the tests send them, right or wrong. Shares nothing with the
// library. Any thread.
#pragma once

#include <string>

namespace netro::peers {

/// The message with its checksum (RFC 1071) in bytes 2 and 3.
std::string WithIcmpChecksum(std::string message);

/// An echo message: type 8 asks, type 0 replies.
std::string EchoMessage(int type, int identifier, int sequence, const std::string& data);

/// An error message that quotes a packet.
std::string IcmpErrorMessage(int type, int code, const std::string& quoted);

struct IpFields {
  std::string source;  // dotted
  std::string destination;
  int ttl = 64;
  int protocol = 1;
  int fragmentOffset = 0;  // of 8 bytes each
  std::string options;     // a multiple of four bytes
};

/// A packet with its header (RFC 791), whose checksum is left for the system to fill in.
std::string IpBytes(const IpFields& fields, const std::string& payload);

}  // namespace netro::peers
