// The parameters of SVCB and HTTPS records: key, length, value, in the order of their keys.

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "dns/RecordFields.h"
#include "dns/ZoneText.h"
#include "support/Base64.h"

namespace netro::field {
namespace {

// Reads the whole value of a parameter and gives what stands behind its name.
using ValueText = std::string (*)(RecordReader& value);

std::string KeyName(std::uint32_t key);

/// One element or more, with commas between.
template <class Element>
std::string List(RecordReader& value, Element element) {
  std::string text = element(value);
  while (value.Remaining() > 0) text += "," + element(value);
  return text;
}

std::string Mandatory(RecordReader& value) {
  return "=" + List(value, [](RecordReader& keys) { return KeyName(keys.Number(2)); });
}

/// A comma inside a protocol's name is escaped once for the list and once for the string.
std::string Protocol(RecordReader& value) {
  std::string text;
  for (const char c : value.Counted()) {
    text += c == ',' || c == '\\' ? "\\" : "";
    text += c;
  }
  return text;
}

std::string Protocols(RecordReader& value) { return "=" + ZoneString(List(value, Protocol)); }

std::string Nothing(RecordReader&) { return {}; }

std::string Port(RecordReader& value) { return "=" + std::to_string(value.Number(2)); }

std::string IPv4Hints(RecordReader& value) {
  return "=" + List(value, [](RecordReader& hints) { return hints.IPv4(); });
}

std::string IPv6Hints(RecordReader& value) {
  return "=" + List(value, [](RecordReader& hints) { return hints.IPv6(); });
}

std::string InBase64(RecordReader& value) { return "=" + Base64Encode(value.Rest()); }

std::string Unknown(RecordReader& value) {
  return value.Remaining() == 0 ? "" : "=" + ZoneString(value.Rest());
}

struct Key {
  const char* name;
  ValueText text;
};

// By their numbers, from 0 on.
constexpr Key kKeys[] = {
    {"mandatory", Mandatory}, {"alpn", Protocols}, {"no-default-alpn", Nothing}, {"port", Port},
    {"ipv4hint", IPv4Hints},  {"ech", InBase64},   {"ipv6hint", IPv6Hints},
};

std::string KeyName(std::uint32_t key) {
  return key < std::size(kKeys) ? kKeys[key].name : "key" + std::to_string(key);
}

}  // namespace

std::string ServiceParameters(RecordReader& data) {
  std::string text;
  std::int64_t last = -1;
  while (data.Remaining() > 0) {
    const std::uint32_t key = data.Number(2);
    RecordReader value(data.Take(data.Number(2)));
    text += (text.empty() ? "" : " ") + KeyName(key) +
            (key < std::size(kKeys) ? kKeys[key].text : Unknown)(value);
    if (!value.Ok() || value.Remaining() > 0 || key <= last) data.Fail();
    last = key;
  }
  return text;
}

}  // namespace netro::field
