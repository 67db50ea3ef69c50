// ICMP echo messages, and what the network says about those that did not arrive: RFC 792 for IPv4,
// RFC 4443 for IPv6. Pure code; any thread.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/Address.h"
#include "platform/IcmpExtensions.h"

namespace netro {

/// IP status codes: how an echo request ended.
enum IpStatus : std::int32_t {
  kIpSuccess = 0,
  kIpNoNetwork = 11002,
  kIpNoHost = 11003,
  kIpNoProtocol = 11004,
  kIpNoPort = 11005,
  kIpNoResources = 11006,
  kIpTooBig = 11009,
  kIpTimedOut = 11010,
  kIpBadRoute = 11012,
  kIpTtlExpired = 11013,
  kIpReassemblyExpired = 11014,
  kIpParameterProblem = 11015,
  kIpSourceQuench = 11016,
  kIpGeneralFailure = 11050,
};

/// The most data that an echo request can carry; with IPv6 twenty bytes more would fit.
inline constexpr std::size_t kLargestEcho = 65'535 - 20 - 8;

/// What a message tells about an echo request.
struct IcmpAnswer {
  std::int32_t status = kIpSuccess;  // anything else: an error message
  IpAddress from;                    // who sent the message
  IpAddress destination;             // where the request went: `from`, or what the error quotes
  std::int32_t ttl = 0;              // of the message as it arrived; the hop limit of IPv6
  std::uint16_t identifier = 0;      // these two are the request's
  std::uint16_t sequence = 0;
  std::int32_t type = -1;  // of the message
  std::int32_t code = -1;
  std::vector<MplsLabel> labels{};     // that the sender of an error tells
  std::span<const std::uint8_t> data;  // of a reply; lives as long as the bytes that were read
};

/// The status that an ICMP message of this type and code stands for; none for types that are no
/// errors (a redirect is none either: the packet goes on).
std::optional<std::int32_t> IcmpErrorStatus(AddressFamily family, std::uint8_t type,
                                            std::uint8_t code);

/// RFC 1071; 0 over a message that holds its own checksum.
std::uint16_t InternetChecksum(std::span<const std::uint8_t> bytes);

/// The checksum of an IPv6 message covers its addresses and is left for the system to fill in.
Bytes ComposeEchoRequest(AddressFamily family, std::uint16_t identifier, std::uint16_t sequence,
                         std::span<const std::uint8_t> data);

/// Reads an ICMP message that should be an echo reply; the addresses are the caller's to fill in.
std::optional<IcmpAnswer> ReadEchoReply(AddressFamily family,
                                        std::span<const std::uint8_t> message);

/// Reads the beginning of an echo request as an error message quotes it. Status and addresses are
/// the caller's to fill in.
std::optional<IcmpAnswer> ReadQuotedRequest(AddressFamily family,
                                            std::span<const std::uint8_t> message);

/// What a raw socket receives: an echo reply, or an error message that quotes an echo request; none
/// for everything else. An IPv4 packet has its header (RFC 791), and its message's checksum must be
/// right. Of IPv6 there is the message alone, whose checksum the system has seen to; the sender and
/// the hop limit are what the system tells.
std::optional<IcmpAnswer> ReadIcmpPacket(std::span<const std::uint8_t> packet);
std::optional<IcmpAnswer> ReadIcmp6Message(std::span<const std::uint8_t> message,
                                           const IpAddress& from, std::int32_t hopLimit);

}  // namespace netro
