// Reads what an ICMP socket receives. The first byte chooses the form: a packet as a raw socket
// gives it, the same with its ICMP checksum made right, an echo reply, or a request as an error
// message quotes it; and the last three of IPv6, whose checksums are the system's. Whatever
// is read lies within the input.
#include <array>
#include <optional>

#include "fuzz/Fuzz.h"
#include "platform/IcmpPacket.h"

namespace {

constexpr std::array<std::uint8_t, 16> kSender = {0xFE, 0x80, 0, 9};

void MakeChecksumRight(netro::Bytes& packet) {
  const std::size_t header = packet.empty() ? 0 : 4U * (packet[0] & 0x0F);
  if (packet.size() < header + 4) return;
  packet[header + 2] = packet[header + 3] = 0;
  const std::uint16_t sum = netro::InternetChecksum(std::span(packet).subspan(header));
  packet[header + 2] = static_cast<std::uint8_t>(sum >> 8);
  packet[header + 3] = static_cast<std::uint8_t>(sum & 0xFF);
}

bool IsStatus(std::int32_t status) {
  return status == 0 || (status >= 11002 && status <= 11005) || status == 11009 ||
         (status >= 11012 && status <= 11016);
}

void Check(const std::optional<netro::IcmpAnswer>& answer, std::span<const std::uint8_t> input) {
  if (!answer) return;
  if (!IsStatus(answer->status) || answer->ttl < 0 || answer->ttl > 255) std::abort();
  if (answer->status != 0 && !answer->data.empty()) std::abort();
  if (answer->status == 0 && answer->from != answer->destination) std::abort();
  if (answer->data.empty()) return;
  if (answer->data.data() < input.data()) std::abort();
  if (answer->data.data() + answer->data.size() > input.data() + input.size()) std::abort();
}

// A copy of exactly this size lets AddressSanitizer see a read past the end.
void Read(std::uint8_t form, std::span<const std::uint8_t> input) {
  netro::Bytes bytes(input.begin(), input.end());
  const auto family = (form & 4) != 0 ? netro::AddressFamily::IPv6 : netro::AddressFamily::IPv4;
  switch (form & 7) {
    case 0:
      return Check(netro::ReadIcmpPacket(bytes), bytes);
    case 1:
      MakeChecksumRight(bytes);
      return Check(netro::ReadIcmpPacket(bytes), bytes);
    case 2:
    case 6:
      return Check(netro::ReadEchoReply(family, bytes), bytes);
    case 3:
    case 7:
      return Check(netro::ReadQuotedRequest(family, bytes), bytes);
    default:
      return Check(netro::ReadIcmp6Message(bytes, netro::IpAddress::V6(kSender, 1), 64), bytes);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::span<const std::uint8_t> input(data + 1, size - 1);
  Read(data[0], input);
  return 0;
}
