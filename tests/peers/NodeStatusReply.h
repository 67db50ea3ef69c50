// Composes a NetBIOS node status reply (RFC 1002, section 4.2.18) byte by byte. Shares nothing with
// the library.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace netro::testkit {

inline std::string NetBios16(unsigned value) {
  return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

/// The encoded name "*", as a request asks for it.
inline std::string AnyNode() {
  return "\x20"
         "CK" +
         std::string(30, 'A') + std::string(1, '\0');
}

/// A MAC address of 00-0A-95-9D-68-16 and 40 bytes that count from 1.
inline std::string CountingStatistics() {
  std::string bytes("\x00\x0A\x95\x9D\x68\x16", 6);
  for (int i = 1; i <= 40; ++i) bytes += static_cast<char>(i);
  return bytes;
}

struct NodeStatusReply {
  std::string id = "\x12\x34";
  std::string flags = "\x84" + std::string(1, '\0');
  std::string counts = NetBios16(0) + NetBios16(1) + NetBios16(0) + NetBios16(0);
  std::string questions{};
  std::string name = AnyNode();
  std::string typeAndClass = NetBios16(0x21) + NetBios16(1);
  std::vector<std::string> names = {"BOX            ", "WORKGROUP      "};
  std::string nameCount{};  // empty: the number of names
  std::string statistics = CountingStatistics();
  std::string length{};  // empty: that of the data

  std::string Bytes() const {
    std::string data =
        nameCount.empty() ? std::string(1, static_cast<char>(names.size())) : nameCount;
    for (const std::string& one : names) data += one + std::string(1, '\0') + "\x04" + '\0';
    data += statistics;
    return id + flags + counts + questions + name + typeAndClass + std::string(4, '\0') +
           (length.empty() ? NetBios16(static_cast<unsigned>(data.size())) : length) + data;
  }
};

}  // namespace netro::testkit
