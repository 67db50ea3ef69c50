// IP addresses of either family as values, and their text. Any thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace netro {

enum class AddressFamily : std::uint8_t { None, IPv4, IPv6 };

/// One address, or none. An IPv4 address in IPv6 form (::ffff:192.0.2.1) is the IPv4 address, so
/// that a host has the same one whatever socket it is met on.
class IpAddress {
 public:
  IpAddress() = default;
  /// From 32 bits in network byte order.
  static IpAddress V4(std::int32_t bits);
  /// `scope` is the system's number of the interface that a link-local address belongs to.
  static IpAddress V6(std::span<const std::uint8_t, 16> bytes, std::uint32_t scope = 0);

  AddressFamily Family() const { return family_; }
  bool IsNone() const { return family_ == AddressFamily::None; }
  bool IsIPv4() const { return family_ == AddressFamily::IPv4; }
  bool IsIPv6() const { return family_ == AddressFamily::IPv6; }
  /// 4 or 16 bytes in network byte order; nothing for none.
  std::span<const std::uint8_t> Bytes() const { return {bytes_.data(), Size()}; }
  std::uint32_t Scope() const { return scope_; }
  /// An IPv4 address as 32 bits in network byte order; -1 for all else.
  std::int32_t Bits() const;

  /// 0.0.0.0 and ::, which stand for "every address" or for none.
  bool IsUnspecified() const;
  bool IsLoopback() const;
  bool IsLinkLocal() const;
  bool IsBroadcast() const { return IsIPv4() && Bits() == -1; }

  bool operator==(const IpAddress&) const = default;

 private:
  std::size_t Size() const { return IsNone() ? 0 : IsIPv4() ? 4 : 16; }

  std::array<std::uint8_t, 16> bytes_{};
  std::uint32_t scope_ = 0;
  AddressFamily family_ = AddressFamily::None;
};

/// An address and a port in host order.
struct SocketAddress {
  IpAddress ip;
  std::int32_t port = 0;

  bool operator==(const SocketAddress&) const = default;
};

/// Dotted text to 32 bits in network byte order and back: every form that the classic inet_addr
/// takes ("127.1" too). "255.255.255.255" is a valid text whose value is -1.
std::optional<std::int32_t> ParseDotted(const std::string& text);
std::string FormatDotted(std::int32_t bits);

/// Text of either family, without brackets: dotted as above, or IPv6 as in RFC 4291, section 2.2,
/// with the zone of RFC 4007 behind "%", as an interface's name or number.
std::optional<IpAddress> ParseAddress(const std::string& text);
/// As RFC 5952 writes it; empty for none.
std::string FormatAddress(const IpAddress& address);
/// A host and a port as people read them: "host:53", "192.0.2.1:53", "[2001:db8::1]:53".
std::string FormatEndpoint(const std::string& host, std::int32_t port);

/// A host and a port as text: "host", "host:port", "[IPv6]:port", "[IPv6]" or a bare IPv6 address.
/// Without a port `port` stays as it is. False for what cannot be one.
bool SplitEndpoint(const std::string& text, std::string& host, std::int32_t& port);

}  // namespace netro
