#include "support/IcmpPacket.h"

#include <algorithm>
#include <cstring>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kUnreachable = 3;
constexpr std::uint8_t kSourceQuench = 4;
constexpr std::uint8_t kEchoRequest = 8;
constexpr std::uint8_t kTimeExceeded = 11;
constexpr std::uint8_t kParameterProblem = 12;

constexpr std::uint8_t kIcmpProtocol = 1;
constexpr std::uint16_t kFragmentOffset = 0x1FFF;
constexpr std::size_t kChecksumPlace = 2;
constexpr std::size_t kIcmpHeader = 8;

// By the code of "destination unreachable"; what RFC 1812 or a later one adds counts as the host's.
constexpr std::int32_t kUnreachableStatus[] = {
    kIpNoNetwork, kIpNoHost, kIpNoProtocol, kIpNoPort,    kIpTooBig, kIpBadRoute,
    kIpNoNetwork, kIpNoHost, kIpNoHost,     kIpNoNetwork, kIpNoHost, kIpNoNetwork};

struct IpPacket {
  std::int32_t source = 0;
  std::int32_t destination = 0;
  std::int32_t ttl = 0;
  std::span<const std::uint8_t> icmp;
};

std::int32_t ReadAddress(ByteReader& reader) {
  std::int32_t address = 0;
  const auto bytes = reader.Take(sizeof address);
  if (!bytes.empty()) std::memcpy(&address, bytes.data(), sizeof address);
  return address;
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

std::optional<IcmpAnswer> ReadError(std::span<const std::uint8_t> message, std::int32_t status) {
  ByteReader reader(message);
  reader.Skip(kIcmpHeader);
  const auto quoted = ReadIp(reader.Take(reader.Remaining()));
  if (!quoted) return std::nullopt;
  auto answer = ReadQuotedRequest(quoted->icmp);
  if (!answer) return std::nullopt;
  answer->status = status;
  answer->destination = quoted->destination;
  return answer;
}

}  // namespace

std::optional<std::int32_t> IcmpErrorStatus(std::uint8_t type, std::uint8_t code) {
  switch (type) {
    case kUnreachable:
      return code < std::size(kUnreachableStatus) ? kUnreachableStatus[code] : kIpNoHost;
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

std::uint16_t InternetChecksum(std::span<const std::uint8_t> bytes) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint64_t byte = bytes[i];
    sum += i % 2 == 0 ? byte << 8 : byte;
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum & 0xFFFF);
}

Bytes ComposeEchoRequest(std::uint16_t identifier, std::uint16_t sequence,
                         std::span<const std::uint8_t> data) {
  ByteWriter out(kIcmpHeader + data.size());
  out.U8(kEchoRequest);
  out.U8(0);
  out.U16(0);
  out.U16(identifier);
  out.U16(sequence);
  out.Append(data);
  Bytes message = out.Take();
  const std::uint16_t checksum = InternetChecksum(message);
  message[kChecksumPlace] = static_cast<std::uint8_t>(checksum >> 8);
  message[kChecksumPlace + 1] = static_cast<std::uint8_t>(checksum & 0xFF);
  return message;
}

std::optional<IcmpAnswer> ReadEchoReply(std::span<const std::uint8_t> message) {
  return ReadEcho(message, kEchoReply);
}

std::optional<IcmpAnswer> ReadQuotedRequest(std::span<const std::uint8_t> message) {
  auto answer = ReadEcho(message, kEchoRequest);
  if (answer) answer->data = {};
  return answer;
}

std::optional<IcmpAnswer> ReadIcmpPacket(std::span<const std::uint8_t> packet) {
  const auto ip = ReadIp(packet);
  if (!ip || ip->icmp.size() < kIcmpHeader || InternetChecksum(ip->icmp) != 0) return std::nullopt;
  const auto status = IcmpErrorStatus(ip->icmp[0], ip->icmp[1]);
  auto answer = status ? ReadError(ip->icmp, *status) : ReadEchoReply(ip->icmp);
  if (!answer) return std::nullopt;
  answer->from = ip->source;
  answer->ttl = ip->ttl;
  if (!status) answer->destination = ip->source;
  return answer;
}

}  // namespace netro
