// Feeds a body to every coding, whole and cut: pieces must be within bounds, both ways must give
// the same bytes and the same end, and a failure must stay and have a text. The first byte says
// where the body is cut.
#include <netro/SystemCodings.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "web/ContentChain.h"

namespace {

constexpr std::uint64_t kMost = 256 << 10;

void Require(bool condition) {
  if (!condition) std::abort();
}

struct Unpacked {
  std::string text;
  std::int32_t end = 0;
  bool operator==(const Unpacked&) const = default;
};

Unpacked Unpack(const netro::CodingProvider& provider, const std::string& codings,
                std::span<const std::uint8_t> body, std::size_t cut) {
  Unpacked result;
  netro::ContentChain chain;
  Require(chain.Open(provider, codings, kMost) == 0);
  const netro::ContentSink sink = [&](std::span<const std::uint8_t> piece) {
    Require(!piece.empty() && piece.size() <= netro::ContentDecoder::kLongestPiece);
    result.text.append(piece.begin(), piece.end());
    return 0;
  };
  cut = std::min(cut, body.size());
  std::int32_t error = chain.Decode(body.first(cut), sink);
  if (error == 0) error = chain.Decode(body.subspan(cut), sink);
  result.end = chain.Finish();
  Require(error == 0 || error == result.end);
  Require((result.end != 0) == !chain.ErrorText().empty());
  Require(result.text.size() <= kMost);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto provider = netro::SystemCodings();
  if (size == 0) return 0;
  const std::span<const std::uint8_t> body(data + 1, size - 1);
  for (const std::string codings : {"gzip", "deflate", "br", "zstd", "gzip, deflate"}) {
    netro::ContentChain chain;
    if (chain.Open(*provider, codings, kMost) != 0) continue;  // built without it
    // What a limit lets through of the last piece depends on where the pieces ended.
    const Unpacked whole = Unpack(*provider, codings, body, 0);
    const Unpacked cut = Unpack(*provider, codings, body, data[0]);
    Require(whole.end == cut.end && (whole.end != 0 || whole == cut));
  }
  return 0;
}
