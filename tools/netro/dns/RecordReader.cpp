// Reading of RDATA.

#include "dns/RecordReader.h"

#include <arpa/inet.h>

#include "dns/ZoneText.h"

namespace netro::tool {
namespace {

constexpr std::size_t kLongestLabel = 63;

std::string AddressText(int family, std::string_view bytes) {
  char text[INET6_ADDRSTRLEN] = {};
  if (!bytes.empty()) ::inet_ntop(family, bytes.data(), text, sizeof text);
  return text;
}

}  // namespace

std::string_view RecordReader::Take(std::size_t size) {
  if (size > bytes_.size()) {
    Fail();
    return {};
  }
  const std::string_view taken = bytes_.substr(0, size);
  bytes_.remove_prefix(size);
  return taken;
}

std::uint32_t RecordReader::Number(std::size_t size) {
  std::uint32_t number = 0;
  for (const char c : Take(size)) number = number << 8 | static_cast<std::uint8_t>(c);
  return number;
}

std::string RecordReader::IPv4() { return AddressText(AF_INET, Take(4)); }

std::string RecordReader::IPv6() { return AddressText(AF_INET6, Take(16)); }

std::string RecordReader::Name() {
  std::string name;
  for (;;) {
    const std::size_t size = Number(1);
    if (size > kLongestLabel) Fail();
    if (size == 0 || !ok_) return name.empty() ? "." : name;
    name += ZoneLabel(Take(size)) + ".";
  }
}

}  // namespace netro::tool
