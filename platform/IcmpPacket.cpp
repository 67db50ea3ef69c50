#include "platform/IcmpPacket.h"

#include <algorithm>
#include <cstring>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

// Types of RFC 792.
constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kUnreachable = 3;
constexpr std::uint8_t kSourceQuench = 4;
constexpr std::uint8_t kEchoRequest = 8;
constexpr std::uint8_t kTimeExceeded = 11;
constexpr std::uint8_t kParameterProblem = 12;

// Types of RFC 4443.
constexpr std::uint8_t kUnreachable6 = 1;
constexpr std::uint8_t kTooBig6 = 2;
constexpr std::uint8_t kTimeExceeded6 = 3;
constexpr std::uint8_t kParameterProblem6 = 4;
constexpr std::uint8_t kEchoRequest6 = 128;
constexpr std::uint8_t kEchoReply6 = 129;

constexpr std::uint8_t kIcmpProtocol = 1;
constexpr std::uint16_t kFragmentOffset = 0x1FFF;
constexpr std::size_t kChecksumPlace = 2;
constexpr std::size_t kIcmpHeader = 8;

// By the code of "destination unreachable"; what RFC 1812 or a later one adds counts as the host's.
constexpr std::int32_t kUnreachableStatus[] = {
    kIpNoNetwork, kIpNoHost, kIpNoProtocol, kIpNoPort,    kIpTooBig, kIpBadRoute,
    kIpNoNetwork, kIpNoHost, kIpNoHost,     kIpNoNetwork, kIpNoHost, kIpNoNetwork};

// The same of IPv6; so does what is to come.
constexpr std::int32_t kUnreachableStatus6[] = {kIpNoNetwork, kIpNoHost, kIpNoHost,   kIpNoHost,
                                                kIpNoPort,    kIpNoHost, kIpNoNetwork};

// What may stand between an IPv6 header and the message (RFC 8200, section 4).
enum NextHeader : std::uint8_t {
  kHopByHop = 0,
  kRouting = 43,
  kFragment = 44,
  kIcmp6 = 58,
  kDestinationOptions = 60,
};

struct IpPacket {
  IpAddress source;
  IpAddress destination;
  std::int32_t ttl = 0;
  std::span<const std::uint8_t> icmp;
};

IpAddress ReadAddress(ByteReader& reader) {
  std::int32_t address = 0;
  const auto bytes = reader.Take(sizeof address);
  if (!bytes.empty()) std::memcpy(&address, bytes.data(), sizeof address);
  return IpAddress::V4(address);
}

// The header and what follows it, as far as it is there. An error message quotes only the beginning
// of a packet, whose header tells a greater length.
std::optional<IpPacket> ReadIp(std::span<const std::uint8_t> bytes) {
  ByteReader reader(bytes);
  IpPacket packet;
  const std::uint8_t first = reader.U8();
  const std::size_t header = 4U * (first & 0x0F);
  reader.Skip(1);
  const std::size_t length = reader.U16();
  reader.Skip(2);
  const std::uint16_t fragment = reader.U16();
  packet.ttl = reader.U8();
  const std::uint8_t protocol = reader.U8();
  reader.Skip(2);
  packet.source = ReadAddress(reader);
  packet.destination = ReadAddress(reader);
  if (!reader.Ok() || first >> 4 != 4 || header < reader.Position() || length < header) {
    return std::nullopt;
  }
  reader.Skip(header - reader.Position());  // options
  packet.icmp = reader.Take(std::min(reader.Remaining(), length - header));
  if (!reader.Ok() || protocol != kIcmpProtocol || (fragment & kFragmentOffset) != 0) {
    return std::nullopt;
  }
  return packet;
}

// The destination of a quoted packet; a link-local one lies on the link that `scope` names.
std::optional<IpAddress> ReadIp6Header(ByteReader& reader, std::uint32_t scope,
                                       std::uint8_t& next) {
  constexpr std::size_t kAddress = 16;
  const std::uint8_t first = reader.U8();
  reader.Skip(5);
  next = reader.U8();
  reader.Skip(1 + kAddress);
  const auto bytes = reader.Take(kAddress);
  if (!reader.Ok() || first >> 4 != 6) return std::nullopt;
  return IpAddress::V6(bytes.first<kAddress>(), scope);
}

// Steps over one extension header; false where there is none, or a fragment that is not the first.
bool SkipExtension(ByteReader& reader, std::uint8_t& next) {
  constexpr std::uint16_t kOffset = 0xFFF8;
  const std::uint8_t kind = next;
  next = reader.U8();
  const std::uint8_t units = reader.U8();
  if (kind == kFragment) {
    const std::uint16_t offset = reader.U16() & kOffset;
    reader.Skip(4);
    return reader.Ok() && offset == 0;
  }
  if (kind != kHopByHop && kind != kRouting && kind != kDestinationOptions) return false;
  reader.Skip(6 + 8U * units);
  return reader.Ok();
}

std::optional<IcmpAnswer> ReadEcho(std::span<const std::uint8_t> message, std::uint8_t wanted) {
  ByteReader reader(message);
  IcmpAnswer answer;
  const std::uint8_t type = reader.U8();
  const std::uint8_t code = reader.U8();
  reader.Skip(2);
  answer.identifier = reader.U16();
  answer.sequence = reader.U16();
  answer.data = reader.Take(reader.Remaining());
  if (!reader.Ok() || type != wanted || code != 0) return std::nullopt;
  return answer;
}

std::optional<IcmpAnswer> ReadError(std::span<const std::uint8_t> message) {
  ByteReader reader(message);
  reader.Skip(kIcmpHeader);
  const auto quoted = ReadIp(reader.Take(reader.Remaining()));
  if (!quoted) return std::nullopt;
  auto answer = ReadQuotedRequest(AddressFamily::IPv4, quoted->icmp);
  if (answer) answer->destination = quoted->destination;
  return answer;
}

std::optional<IcmpAnswer> ReadError6(std::span<const std::uint8_t> message, std::uint32_t scope) {
  ByteReader reader(message);
  reader.Skip(kIcmpHeader);
  std::uint8_t next = 0;
  const auto destination = ReadIp6Header(reader, scope, next);
  while (destination && next != kIcmp6)
    if (!SkipExtension(reader, next)) return std::nullopt;
  if (!destination) return std::nullopt;
  auto answer = ReadQuotedRequest(AddressFamily::IPv6, reader.Take(reader.Remaining()));
  if (answer) answer->destination = *destination;
  return answer;
}

void SetMessage(IcmpAnswer& answer, AddressFamily family, std::span<const std::uint8_t> message,
                std::optional<std::int32_t> status) {
  answer.status = status.value_or(kIpSuccess);
  answer.type = message[0];
  answer.code = message[1];
  if (status) answer.labels = ReadMplsLabels(FindExtensions(family, message));
}

template <std::size_t N>
std::int32_t ByCode(const std::int32_t (&statuses)[N], std::uint8_t code) {
  return code < N ? statuses[code] : std::int32_t{kIpNoHost};
}

std::optional<std::int32_t> ErrorStatus4(std::uint8_t type, std::uint8_t code) {
  switch (type) {
    case kUnreachable:
      return ByCode(kUnreachableStatus, code);
    case kSourceQuench:
      return kIpSourceQuench;
    case kTimeExceeded:
      return code == 1 ? kIpReassemblyExpired : kIpTtlExpired;
    case kParameterProblem:
      return kIpParameterProblem;
    default:
      return std::nullopt;
  }
}

std::optional<std::int32_t> ErrorStatus6(std::uint8_t type, std::uint8_t code) {
  constexpr std::uint8_t kUnknownNextHeader = 1;
  switch (type) {
    case kUnreachable6:
      return ByCode(kUnreachableStatus6, code);
    case kTooBig6:
      return kIpTooBig;
    case kTimeExceeded6:
      return code == 1 ? kIpReassemblyExpired : kIpTtlExpired;
    case kParameterProblem6:
      return code == kUnknownNextHeader ? kIpNoProtocol : kIpParameterProblem;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<std::int32_t> IcmpErrorStatus(AddressFamily family, std::uint8_t type,
                                            std::uint8_t code) {
  return family == AddressFamily::IPv6 ? ErrorStatus6(type, code) : ErrorStatus4(type, code);
}

std::uint16_t InternetChecksum(std::span<const std::uint8_t> bytes) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint64_t byte = bytes[i];
    sum += i % 2 == 0 ? byte << 8 : byte;
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum & 0xFFFF);
}

Bytes ComposeEchoRequest(AddressFamily family, std::uint16_t identifier, std::uint16_t sequence,
                         std::span<const std::uint8_t> data) {
  const bool v6 = family == AddressFamily::IPv6;
  ByteWriter out(kIcmpHeader + data.size());
  out.U8(v6 ? kEchoRequest6 : kEchoRequest);
  out.U8(0);
  out.U16(0);
  out.U16(identifier);
  out.U16(sequence);
  out.Append(data);
  Bytes message = out.Take();
  if (v6) return message;
  const std::uint16_t checksum = InternetChecksum(message);
  message[kChecksumPlace] = static_cast<std::uint8_t>(checksum >> 8);
  message[kChecksumPlace + 1] = static_cast<std::uint8_t>(checksum & 0xFF);
  return message;
}

std::optional<IcmpAnswer> ReadEchoReply(AddressFamily family,
                                        std::span<const std::uint8_t> message) {
  return ReadEcho(message, family == AddressFamily::IPv6 ? kEchoReply6 : kEchoReply);
}

std::optional<IcmpAnswer> ReadQuotedRequest(AddressFamily family,
                                            std::span<const std::uint8_t> message) {
  auto answer = ReadEcho(message, family == AddressFamily::IPv6 ? kEchoRequest6 : kEchoRequest);
  if (answer) answer->data = {};
  return answer;
}

std::optional<IcmpAnswer> ReadIcmpPacket(std::span<const std::uint8_t> packet) {
  const auto ip = ReadIp(packet);
  if (!ip || ip->icmp.size() < kIcmpHeader || InternetChecksum(ip->icmp) != 0) return std::nullopt;
  const auto status = ErrorStatus4(ip->icmp[0], ip->icmp[1]);
  auto answer = status ? ReadError(ip->icmp) : ReadEchoReply(AddressFamily::IPv4, ip->icmp);
  if (!answer) return std::nullopt;
  SetMessage(*answer, AddressFamily::IPv4, ip->icmp, status);
  answer->from = ip->source;
  answer->ttl = ip->ttl;
  if (!status) answer->destination = ip->source;
  return answer;
}

std::optional<IcmpAnswer> ReadIcmp6Message(std::span<const std::uint8_t> message,
                                           const IpAddress& from, std::int32_t hopLimit) {
  if (message.size() < kIcmpHeader) return std::nullopt;
  const auto status = ErrorStatus6(message[0], message[1]);
  auto answer =
      status ? ReadError6(message, from.Scope()) : ReadEchoReply(AddressFamily::IPv6, message);
  if (!answer) return std::nullopt;
  SetMessage(*answer, AddressFamily::IPv6, message, status);
  answer->from = from;
  answer->ttl = hopLimit;
  if (!status) answer->destination = from;
  return answer;
}

}  // namespace netro
