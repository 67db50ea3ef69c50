#include "dns/DnsOpt.h"

#include <utility>

namespace netro {
namespace {

constexpr std::uint8_t kRoot = 0;
constexpr std::uint16_t kDnssecOk = 0x8000;

std::vector<EDNSOption> ReadOptions(ByteReader& data) {
  std::vector<EDNSOption> options;
  while (data.Remaining() > 0) {
    EDNSOption& option = options.emplace_back();
    option.Code = data.U16();
    const auto bytes = data.Take(data.U16());
    option.Data.assign(bytes.begin(), bytes.end());
  }
  return options;
}

}  // namespace

void WriteOpt(std::uint16_t udpSize, bool dnssecOk, ByteWriter& writer) {
  writer.U8(kRoot);
  writer.U16(kTypeOpt);
  writer.U16(udpSize);
  writer.U16(0);  // the upper bits of the response code, and the version
  writer.U16(dnssecOk ? kDnssecOk : 0);
  writer.U16(0);
}

std::optional<EDNSCLS> ReadOpt(ByteReader reader) {
  if (reader.U8() != kRoot || reader.U16() != kTypeOpt) return std::nullopt;
  EDNSCLS opt;
  opt.UDPSize(reader.U16());
  opt.ExtendedRCODE(reader.U8());
  opt.Version(reader.U8());
  opt.Flags(reader.U16());
  ByteReader data(reader.Take(reader.U16()));
  opt.Options(ReadOptions(data));
  return reader.Ok() && data.Ok() ? std::optional(std::move(opt)) : std::nullopt;
}

}  // namespace netro
