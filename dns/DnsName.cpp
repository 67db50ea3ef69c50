#include "dns/DnsName.h"

#include <algorithm>

namespace netro {
namespace {

constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestName = 255;  // with length bytes and the root's
constexpr std::uint8_t kPointer = 0xC0;
constexpr int kMostPointers = 128;

// Gives `take` one label after the other until it returns false; false then, too.
template <class Take>
bool ForEachLabel(std::string_view name, Take take) {
  for (;;) {
    const std::size_t end = std::min(name.find('.'), name.size());
    if (!take(name.substr(0, end))) return false;
    if (end == name.size()) return true;
    name.remove_prefix(end + 1);
  }
}

bool IsName(std::string_view name) {
  if (name.empty() || name.size() + 2 > kLongestName) return false;
  return ForEachLabel(
      name, [](std::string_view label) { return !label.empty() && label.size() <= kLongestLabel; });
}

}  // namespace

bool WriteName(std::string_view name, ByteWriter& writer) {
  const bool root = name == ".";
  if (name.ends_with('.')) name.remove_suffix(1);
  if (!root && !IsName(name)) return false;
  const auto write = [&](std::string_view label) {
    writer.U8(static_cast<std::uint8_t>(label.size()));
    writer.Text(label);
    return true;
  };
  if (!root) ForEachLabel(name, write);
  writer.U8(0);
  return true;
}

bool ReadName(std::span<const std::uint8_t> message, ByteReader& reader, std::string& name) {
  name.clear();
  std::size_t length = 1;
  int pointers = 0;
  ByteReader behind({});  // reads where the last pointer led to
  ByteReader* current = &reader;
  for (;;) {
    const std::size_t here = current->Position();
    const std::uint8_t size = current->U8();
    if (!current->Ok()) return false;
    if (size == 0) return true;
    if (size >= kPointer) {
      const std::size_t target = (size & 0x3Fu) << 8 | current->U8();
      if (!current->Ok() || target >= here || ++pointers > kMostPointers) return false;
      behind = ByteReader(message);
      behind.Skip(target);
      current = &behind;
      continue;
    }
    const auto label = current->Take(size);
    length += size + 1u;
    if (size > kLongestLabel || !current->Ok() || length > kLongestName) return false;
    if (!name.empty()) name += '.';
    name.append(reinterpret_cast<const char*>(label.data()), label.size());
  }
}

}  // namespace netro
