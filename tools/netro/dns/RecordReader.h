// Reads the data of one DNS record (RDATA) within its bounds. Its bytes are hostile until proven
// good: a read beyond the end fails the reader for good, and gives nothing. Thread: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro::tool {

class RecordReader {
 public:
  /// The bytes must outlive the reader.
  explicit RecordReader(std::string_view bytes) : bytes_(bytes) {}

  bool Ok() const { return ok_; }
  void Fail() {
    ok_ = false;
    bytes_ = {};
  }
  std::size_t Remaining() const { return bytes_.size(); }

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

 private:
  std::string_view bytes_;
  bool ok_ = true;
};

}  // namespace netro::tool
