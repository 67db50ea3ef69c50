// Fields of DNS records that have names for numbers, and records whose fields depend on each other.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "dns/RecordFields.h"
#include "dns/ZoneText.h"
#include "support/Base64.h"

namespace netro::field {
namespace {

struct Mnemonic {
  std::uint32_t number;
  const char* name;
};

template <class Mnemonics>
std::string NameOf(const Mnemonics& mnemonics, std::uint32_t number) {
  const auto* found = std::ranges::find(mnemonics, number, &Mnemonic::number);
  return found == std::end(mnemonics) ? std::to_string(number) : found->name;
}

std::string Gateway(RecordReader& data, std::uint32_t type) {
  switch (type) {
    case 0:
      return ".";
    case 1:
      return data.IPv4();
    case 2:
      return data.IPv6();
    case 3:
      return data.Name();
    default:
      data.Fail();
      return {};
  }
}

/// An address whose zero bytes at the end may be missing.
std::string ShortAddress(std::string_view part, std::size_t size) {
  std::string bytes(part);
  bytes.resize(size);
  RecordReader reader(bytes);
  return size == 4 ? reader.IPv4() : reader.IPv6();
}

}  // namespace

/// RFC 4398, section 2.1
std::string CertificateType(RecordReader& data) {
  constexpr Mnemonic kTypes[] = {{1, "PKIX"},  {2, "SPKI"}, {3, "PGP"},    {4, "IPKIX"},
                                 {5, "ISPKI"}, {6, "IPGP"}, {7, "ACPKIX"}, {8, "IACPKIX"},
                                 {253, "URI"}, {254, "OID"}};
  return NameOf(kTypes, data.Number(2));
}

/// RFC 8624, section 3.1, and the registry that it is about
std::string Algorithm(RecordReader& data) {
  constexpr Mnemonic kAlgorithms[] = {{1, "RSAMD5"},
                                      {2, "DH"},
                                      {3, "DSA"},
                                      {5, "RSASHA1"},
                                      {6, "NSEC3DSA"},
                                      {7, "NSEC3RSASHA1"},
                                      {8, "RSASHA256"},
                                      {10, "RSASHA512"},
                                      {12, "ECCGOST"},
                                      {13, "ECDSAP256SHA256"},
                                      {14, "ECDSAP384SHA384"},
                                      {15, "ED25519"},
                                      {16, "ED448"},
                                      {252, "INDIRECT"},
                                      {253, "PRIVATEDNS"},
                                      {254, "PRIVATEOID"}};
  return NameOf(kAlgorithms, data.Number(1));
}

/// RFC 9859, section 2.1
std::string SyncScheme(RecordReader& data) {
  constexpr Mnemonic kSchemes[] = {{1, "NOTIFY"}};
  return NameOf(kSchemes, data.Number(1));
}

// --- types whose fields depend on each other -----------------------------------------------------

std::string IpsecKey(RecordReader& data) {
  std::string text = U8(data);
  const std::uint32_t type = data.Number(1);
  AddWord(text, std::to_string(type));
  AddWord(text, U8(data));
  AddWord(text, Gateway(data, type));
  AddWord(text, Key(data));
  return text;
}

std::string MulticastRelay(RecordReader& data) {
  std::string text = U8(data);
  const std::uint32_t type = data.Number(1);
  AddWord(text, std::to_string(type >> 7) + " " + std::to_string(type & 127));
  AddWord(text, Gateway(data, type & 127));
  return text;
}

std::string HostIdentity(RecordReader& data) {
  const std::uint32_t tagSize = data.Number(1);
  std::string text = U8(data);
  const std::uint32_t keySize = data.Number(2);
  if (tagSize == 0 || keySize == 0) data.Fail();
  AddWord(text, HexDigits(data.Take(tagSize)));
  AddWord(text, Base64Encode(data.Take(keySize)));
  while (data.Remaining() > 0) AddWord(text, data.Name());
  return text;
}

std::string Prefixes(RecordReader& data) {
  std::string text;
  while (data.Remaining() > 0) {
    const std::uint32_t family = data.Number(2);
    const std::uint32_t prefix = data.Number(1);
    const std::uint32_t size = data.Number(1);
    const std::string_view part = data.Take(size & 127);
    const std::size_t whole = family == 1 ? 4 : 16;
    if (family < 1 || family > 2 || prefix > whole * 8 || part.size() > whole) data.Fail();
    AddWord(text, (size > 127 ? "!" : "") + std::to_string(family) + ":" +
                      ShortAddress(part, whole) + "/" + std::to_string(prefix));
  }
  return text;
}

std::string AddressChain(RecordReader& data) {
  const std::uint32_t prefix = data.Number(1);
  if (prefix > 128) {
    data.Fail();
    return {};
  }
  std::string text = std::to_string(prefix);
  if (prefix < 128) {
    std::string bytes(prefix / 8, '\0');
    bytes += data.Take(16 - prefix / 8);
    AddWord(text, ShortAddress(bytes, 16));
  }
  return prefix == 0 ? text : text + " " + data.Name();
}

}  // namespace netro::field
