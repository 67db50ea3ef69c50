// The decoders that one body passes through, as its Content-Encoding lists them (RFC 9110, section
// 8.4), and the limit on what it may unpack to. Lives as long as the body; thread: as the decoders.
#pragma once

#include <netro/ContentCodings.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

class ContentChain {
 public:
  /// Reads the value of Content-Encoding, several fields joined by ", ". "identity" and empty items
  /// are left out. Returns 0, or codingUnknown for a name that the provider does not have or for
  /// more than five codings. `mostBytes` is the limit on what each coding may unpack to, 0 for
  /// none.
  std::int32_t Open(const CodingProvider& provider, std::string_view contentEncoding,
                    std::uint64_t mostBytes);

  /// True when there is nothing to unpack: the body is what arrives.
  bool IsPlain() const { return links_.empty(); }

  /// As ContentDecoder; 10040 when the limit is passed. The sink gets no byte beyond it.
  std::int32_t Decode(std::span<const std::uint8_t> block, const ContentSink& sink);
  std::int32_t Finish();
  const std::string& ErrorText() const { return errorText_; }

 private:
  struct Link {
    std::unique_ptr<ContentDecoder> decoder;
    std::uint64_t unpacked = 0;
  };

  std::int32_t DecodeFrom(std::size_t index, std::span<const std::uint8_t> block,
                          const ContentSink& sink);
  std::int32_t Fail(std::int32_t error, std::string text);

  std::vector<Link> links_;  // what was applied last comes off first
  std::uint64_t mostBytes_ = 0;
  std::string errorText_;
};

}  // namespace netro
