#include "tests/peers/IcmpBytes.h"

#include <arpa/inet.h>

#include <cstddef>

namespace netro::testkit {
namespace {

std::string Big16(std::size_t value) {
  return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

bool IsIPv6(const std::string& address) { return address.find(':') != address.npos; }

std::string Address(const std::string& text) {
  const bool v6 = IsIPv6(text);
  char bytes[16] = {};
  inet_pton(v6 ? AF_INET6 : AF_INET, text.c_str(), bytes);
  return {bytes, v6 ? 16U : 4U};
}

std::string Ip6Bytes(const IpFields& fields, const std::string& message) {
  constexpr char kIcmp6 = 58;
  const std::string addresses = Address(fields.source) + Address(fields.destination);
  const std::string pseudoHeader =
      addresses + std::string(2, '\0') + Big16(message.size()) + std::string(3, '\0') + kIcmp6;
  const bool hasChecksum = message.size() >= 4;
  std::string packet = "\x60" + std::string(3, '\0');
  packet += Big16(fields.options.size() + message.size());
  packet += fields.options.empty() ? kIcmp6 : static_cast<char>(fields.protocol);
  packet += static_cast<char>(fields.ttl);
  return packet + addresses + fields.options +
         (hasChecksum ? WithIcmpChecksum(message, pseudoHeader) : message);
}

}  // namespace

std::string WithIcmpChecksum(std::string message, const std::string& before) {
  message.replace(2, 2, 2, '\0');
  const std::string all = before + message;
  unsigned long sum = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto byte = static_cast<unsigned char>(all[i]);
    sum += i % 2 == 0 ? byte * 256UL : byte;
  }
  while (sum > 0xFFFF) sum = sum % 0x10000 + sum / 0x10000;
  return message.replace(2, 2, Big16(0xFFFF - sum));
}

std::string EchoMessage(int type, int identifier, int sequence, const std::string& data) {
  return WithIcmpChecksum(static_cast<char>(type) + std::string(3, '\0') +
                          Big16(static_cast<std::size_t>(identifier)) +
                          Big16(static_cast<std::size_t>(sequence)) + data);
}

std::string IcmpErrorMessage(int type, int code, std::string quoted,
                             const std::string& extensions) {
  std::string rest(6, '\0');
  if (!extensions.empty()) {
    const bool v6 = quoted[0] >> 4 == 6;
    quoted.resize(128);
    rest[v6 ? 2 : 3] = static_cast<char>(quoted.size() / (v6 ? 8 : 4));
  }
  return WithIcmpChecksum(static_cast<char>(type) + std::string(1, static_cast<char>(code)) + rest +
                          quoted + extensions);
}

std::string MplsExtensions(const std::string& labels) {
  return WithIcmpChecksum(std::string("\x20\0\0\0\0", 5) + static_cast<char>(4 + labels.size()) +
                          "\x01\x01" + labels);
}

std::string IpBytes(const IpFields& fields, const std::string& payload) {
  if (IsIPv6(fields.source)) return Ip6Bytes(fields, payload);
  const std::size_t header = 20 + fields.options.size();
  std::string packet;
  packet += static_cast<char>(0x40 + header / 4);
  packet += '\0';
  packet += Big16(header + payload.size());
  packet += Big16(1);  // identification
  packet += Big16(static_cast<std::size_t>(fields.fragmentOffset));
  packet += static_cast<char>(fields.ttl);
  packet += static_cast<char>(fields.protocol);
  packet += Big16(0);
  packet += Address(fields.source) + Address(fields.destination) + fields.options;
  return packet + payload;
}

}  // namespace netro::testkit
