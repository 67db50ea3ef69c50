// Feeds a body to a coding that the first byte chooses, whole and in pieces: what comes out must be
// within bounds, both ways must give the same bytes or both fail, and a failure must stay and have
// a text.
#include <netro/SystemCodings.h>

#include <iterator>

#include "fuzz/Fuzz.h"
#include "web/ContentChain.h"

namespace {

constexpr std::uint64_t kMost = 256 << 10;

struct Unpacked {
  std::string text;
  std::int32_t end = 0;
  bool operator==(const Unpacked&) const = default;
};

Unpacked Unpack(const netro::CodingProvider& provider, const std::string& codings, FuzzBytes body,
                const FuzzCuts& cuts) {
  Unpacked result;
  netro::ContentChain chain;
  Require(chain.Open(provider, codings, kMost) == 0);
  const netro::ContentSink sink = [&](std::span<const std::uint8_t> piece) {
    Require(!piece.empty() && piece.size() <= netro::ContentDecoder::kLongestPiece);
    result.text.append(piece.begin(), piece.end());
    return 0;
  };
  std::int32_t error = 0;
  cuts.Apply(body, [&](FuzzBytes piece) {
    if (error == 0) error = chain.Decode(piece, sink);
  });
  result.end = chain.Finish();
  Require(error == 0 || error == result.end);
  Require((result.end != 0) == !chain.ErrorText().empty());
  Require(result.text.size() <= kMost);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto provider = netro::SystemCodings();
  constexpr const char* kCodings[] = {"gzip", "deflate", "br", "zstd", "gzip, deflate"};
  FuzzBytes body(data, size);
  const std::string codings = kCodings[TakeByte(body) % std::size(kCodings)];
  const FuzzCuts cuts(body);
  FuzzBytes none;
  netro::ContentChain chain;
  if (chain.Open(*provider, codings, kMost) != 0) return 0;  // built without it
  // How much of a bad body comes out, and which fault is met first, depends on where the pieces
  // end.
  const Unpacked whole = Unpack(*provider, codings, body, FuzzCuts(none));
  const Unpacked cut = Unpack(*provider, codings, body, cuts);
  Require(whole.end == 0 ? whole == cut : cut.end != 0);
  return 0;
}
