#include "diag/NodeStatus.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "dns/DnsName.h"
#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

constexpr std::uint16_t kTypeNodeStatus = 0x21;
constexpr std::uint16_t kClassInternet = 1;
constexpr std::uint16_t kResponse = 0x8000;
constexpr std::uint16_t kOpcodeAndResult = 0x780F;
constexpr std::size_t kNameEntrySize = 18;  // 15 letters, a suffix, two bytes of flags

// The name that every host answers to.
constexpr std::string_view kWildcard("*\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);

// RFC 1001, section 14.1: a byte becomes two letters.
std::string EncodeName(std::string_view name) {
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<std::uint8_t>(c);
    text += static_cast<char>('A' + (byte >> 4));
    text += static_cast<char>('A' + (byte & 0xF));
  }
  return text;
}

// Up to the data of the answer, which becomes the rest of `in`.
bool SkipToData(std::span<const std::uint8_t> reply, ByteReader& in) {
  in.Skip(2);
  const std::uint16_t flags = in.U16();
  const std::uint16_t questions = in.U16();
  const std::uint16_t answers = in.U16();
  in.Skip(4);
  if ((flags & (kResponse | kOpcodeAndResult)) != kResponse || answers == 0) return false;
  std::string name;
  for (int i = 0; i < questions; ++i) {
    if (!ReadName(reply, in, name)) return false;
    in.Skip(4);
  }
  if (!ReadName(reply, in, name)) return false;
  const std::uint16_t type = in.U16();
  const std::uint16_t classNumber = in.U16();
  in.Skip(4);
  in = ByteReader(in.Take(in.U16()));
  return type == kTypeNodeStatus && classNumber == kClassInternet;
}

std::int16_t Signed16(ByteReader& in) { return static_cast<std::int16_t>(in.U16()); }
std::int32_t Signed32(ByteReader& in) { return static_cast<std::int32_t>(in.U32()); }

// The counters stand in the order of the adapter status, of which this is the older shape; where
// the two give a place different names, the place decides.
void ReadStatistics(ByteReader& in, AdapterStatus& status) {
  std::ranges::copy(in.Take(status.address.size()), status.address.begin());
  in.Skip(2);  // jumpers, test result
  status.revMajor = in.U8();
  status.revMinor = in.U8();
  status.duration = Signed16(in);
  status.frmrRecv = Signed16(in);       // CRC errors
  status.frmrXmit = Signed16(in);       // alignment errors
  status.iframeRecvErr = Signed16(in);  // collisions
  status.xmitAborts = Signed16(in);
  status.xmitSuccess = Signed32(in);
  status.recvSuccess = Signed32(in);
  status.iframeXmitErr = Signed16(in);    // retransmissions
  status.recvBuffUnavail = Signed16(in);  // no resources
  status.freeNcbs = Signed16(in);
  status.maxCfgNcbs = Signed16(in);
  status.maxNcbs = Signed16(in);
  status.pendingSess = Signed16(in);
  status.maxCfgSess = Signed16(in);
  status.maxSess = Signed16(in);
  status.maxSessPktSize = Signed16(in);
}

}  // namespace

Bytes ComposeNodeStatusRequest(std::uint16_t id) {
  ByteWriter out;
  out.U16(id);
  out.U16(0);  // a query to one host
  out.U16(1);  // question
  for (int i = 0; i < 3; ++i) out.U16(0);
  WriteName(EncodeName(kWildcard), out);
  out.U16(kTypeNodeStatus);
  out.U16(kClassInternet);
  return out.Take();
}

bool MayAnswerNodeStatus(std::span<const std::uint8_t> datagram, std::uint16_t id) {
  ByteReader in(datagram);
  const std::uint16_t first = in.U16();
  return !in.Ok() || first == id;
}

bool ReadNodeStatus(std::span<const std::uint8_t> reply, AdapterStatus& status) {
  ByteReader in(reply);
  if (!SkipToData(reply, in)) return false;
  AdapterStatus read;
  const std::uint8_t names = in.U8();
  in.Skip(names * kNameEntrySize);
  ReadStatistics(in, read);
  read.nameCount = names;
  if (!in.Ok()) return false;
  status = read;
  return true;
}

}  // namespace netro
