// What fuzz targets share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using FuzzBytes = std::span<const std::uint8_t>;

inline void Require(bool condition) {
  if (!condition) std::abort();
}

inline std::string_view TextOf(FuzzBytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline std::uint8_t TakeByte(FuzzBytes& bytes) {
  if (bytes.empty()) return 0;
  const std::uint8_t first = bytes.front();
  bytes = bytes.subspan(1);
  return first;
}

/// Where the input wants a stream to be cut: it begins with the number of sizes, up to seven, that
/// the pieces have in turn, less one. Without any there is one piece.
class FuzzCuts {
 public:
  explicit FuzzCuts(FuzzBytes& input) {
    const std::size_t wanted = TakeByte(input) % 8;
    sizes_ = input.first(std::min(wanted, input.size()));
    input = input.subspan(sizes_.size());
  }

  template <class Feed>
  void Apply(FuzzBytes stream, const Feed& feed) const {
    for (std::size_t i = 0; !stream.empty(); ++i) {
      const std::size_t wanted = sizes_.empty() ? stream.size() : sizes_[i % sizes_.size()] + 1U;
      const std::size_t size = std::min(wanted, stream.size());
      feed(stream.first(size));
      stream = stream.subspan(size);
    }
  }

 private:
  FuzzBytes sizes_;
};
