#include "dns/RecordReader.h"

#include "dns/DnsName.h"
#include "dns/ZoneText.h"
#include "platform/Address.h"

namespace netro {

std::string_view RecordReader::Take(std::size_t size) {
  const auto taken = bytes_.Take(size);
  return {reinterpret_cast<const char*>(taken.data()), taken.size()};
}

std::uint32_t RecordReader::Number(std::size_t size) {
  std::uint32_t number = 0;
  for (const std::uint8_t byte : bytes_.Take(size)) number = number << 8 | byte;
  return number;
}

std::string RecordReader::IPv4() {
  std::string text;
  for (const std::uint8_t byte : bytes_.Take(4)) {
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  }
  return text;
}

std::string RecordReader::IPv6() {
  const auto bytes = bytes_.Take(16);
  return Ok() ? ZoneIPv6(IpAddress::V6(bytes.first<16>())) : "";
}

std::string RecordReader::Name() {
  std::string name;
  if (!ReadName({}, bytes_, name, NameForm::Escaped)) Fail();
  return name + ".";
}

}  // namespace netro
