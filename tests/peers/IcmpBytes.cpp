#include "tests/peers/IcmpBytes.h"

#include <arpa/inet.h>

#include <cstddef>

namespace netro::peers {
namespace {

std::string Big16(std::size_t value) {
  return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

std::string Address(const std::string& dotted) {
  in_addr address{};
  inet_pton(AF_INET, dotted.c_str(), &address);
  return {reinterpret_cast<const char*>(&address), sizeof address};
}

}  // namespace

std::string WithIcmpChecksum(std::string message) {
  message.replace(2, 2, 2, '\0');
  unsigned long sum = 0;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const auto byte = static_cast<unsigned char>(message[i]);
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

std::string IcmpErrorMessage(int type, int code, const std::string& quoted) {
  return WithIcmpChecksum(static_cast<char>(type) + std::string(1, static_cast<char>(code)) +
                          std::string(6, '\0') + quoted);
}

std::string IpBytes(const IpFields& fields, const std::string& payload) {
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

}  // namespace netro::peers
