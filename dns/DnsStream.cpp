#include "dns/DnsStream.h"

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {

void DnsStream::Feed(std::span<const std::uint8_t> bytes, const Take& take) {
  partial_.insert(partial_.end(), bytes.begin(), bytes.end());
  std::size_t taken = 0;
  for (;;) {
    ByteReader reader(std::span<const std::uint8_t>(partial_).subspan(taken));
    const auto message = reader.Take(reader.U16());
    if (!reader.Ok()) break;
    take(message);
    taken += reader.Position();
  }
  partial_.erase(partial_.begin(), partial_.begin() + static_cast<std::ptrdiff_t>(taken));
}

Bytes WithLength(std::span<const std::uint8_t> message) {
  ByteWriter writer;
  writer.U16(static_cast<std::uint16_t>(message.size()));
  writer.Append(message);
  return writer.Take();
}

}  // namespace netro
