// The kernel's network tables (RFC 3549): asking for one, and the way through what it answers. The
// length fields of an answer are believed only within the bytes that came. Any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <type_traits>

namespace netro {

using NetlinkBytes = std::span<const std::uint8_t>;

/// Gets each message of an answer: its type, and a fixed part with attributes behind it.
using NetlinkVisitor = std::function<void(std::uint16_t type, NetlinkBytes payload)>;

/// All entries of a table. `request` is RTM_GETLINK or the like. Returns the error number.
std::int32_t DumpNetlink(std::uint16_t request, std::uint8_t family, const NetlinkVisitor& visit);

/// One question that is not about a whole table: RTM_GETROUTE for one host. Returns the error
/// number.
std::int32_t AskNetlink(std::uint16_t request, NetlinkBytes payload, const NetlinkVisitor& visit);

/// Orders one change and waits until the kernel has made it or refused. Returns the error number.
std::int32_t ChangeNetlink(std::uint16_t request, NetlinkBytes payload);

/// Visits the messages of one datagram. Returns the error number when the answer ends in it (0 for
/// a good end), none when more is to come.
std::optional<std::int32_t> WalkNetlink(NetlinkBytes datagram, const NetlinkVisitor& visit);

/// The value of the first attribute of that type; empty when there is none.
NetlinkBytes FindAttribute(NetlinkBytes attributes, std::uint16_t type);

/// Everything in netlink begins at a multiple of four bytes.
constexpr std::size_t NetlinkAligned(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

/// Takes a structure off the front of `bytes`; false when they are too few.
template <class T>
bool TakeNetlink(NetlinkBytes& bytes, T& value) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (bytes.size() < sizeof value) return false;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes = bytes.subspan(std::min(bytes.size(), NetlinkAligned(sizeof value)));
  return true;
}

}  // namespace netro
