// Reads the data of one DNS record (RDATA) as words of a zone file, within its bounds. Its bytes
// are hostile until proven good: a read beyond the end fails the reader for good, and gives
// nothing. Used on the stack; thread: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "support/ByteReader.h"

namespace netro {

class RecordReader {
 public:
  /// The bytes must outlive the reader.
  explicit RecordReader(std::string_view bytes)
      : bytes_({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}) {}

  bool Ok() const { return bytes_.Ok(); }
  void Fail() { bytes_.Skip(std::numeric_limits<std::size_t>::max()); }
  std::size_t Remaining() const { return bytes_.Remaining(); }

  std::string_view Take(std::size_t size);
  std::string_view Rest() { return Take(Remaining()); }

  /// A big-endian number of 1, 2 or 4 bytes.
  std::uint32_t Number(std::size_t size);

  /// A byte that tells the length, and as many bytes.
  std::string_view Counted() { return Take(Number(1)); }

  /// Addresses in the usual form (RFC 5952).
  std::string IPv4();
  std::string IPv6();

  /// A name in the form of zone files. Where a compressed name points to is not known here; newer
  /// types hold none (RFC 3597, section 4).
  std::string Name();

  /// For the library's own readers, which fail it as well.
  ByteReader& Bytes() { return bytes_; }

 private:
  ByteReader bytes_;
};

}  // namespace netro
