#include "web/ContentChain.h"

#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"

namespace netro {
namespace {

// Each coding multiplies what a small body can unpack to; nobody honest applies more than two.
constexpr std::size_t kMostCodings = 5;

/// A server's word, for an error text.
std::string Shown(std::string_view name) {
  std::string shown(name.substr(0, 40));
  std::ranges::replace_if(
      shown, [](char c) { return c < ' ' || c > '~'; }, '?');
  return '"' + shown + '"';
}

}  // namespace

std::int32_t ContentChain::Open(const CodingProvider& provider, std::string_view contentEncoding,
                                std::uint64_t mostBytes) {
  links_.clear();
  errorText_.clear();
  mostBytes_ = mostBytes;
  for (const std::string& item : Split(contentEncoding, ',')) {
    const std::string name = Trim(item);
    if (name.empty() || EqualsIgnoreCase(name, "identity")) continue;
    auto decoder = provider.MakeDecoder(name);
    if (!decoder) return Fail(codingUnknown, "The body has the unknown coding " + Shown(name));
    if (links_.size() == kMostCodings) return Fail(codingUnknown, "The body has too many codings");
    links_.insert(links_.begin(), Link{std::move(decoder), 0});
  }
  return 0;
}

std::int32_t ContentChain::Decode(std::span<const std::uint8_t> block, const ContentSink& sink) {
  return block.empty() ? 0 : DecodeFrom(0, block, sink);
}

std::int32_t ContentChain::DecodeFrom(std::size_t index, std::span<const std::uint8_t> block,
                                      const ContentSink& sink) {
  if (index == links_.size()) return sink(block);
  Link& link = links_[index];
  const std::int32_t error = link.decoder->Decode(block, [&](std::span<const std::uint8_t> piece) {
    link.unpacked += piece.size();
    if (mostBytes_ != 0 && link.unpacked > mostBytes_) {
      return Fail(kErrMessageTooLong,
                  "The body unpacks to more than " + std::to_string(mostBytes_) + " bytes");
    }
    return DecodeFrom(index + 1, piece, sink);
  });
  if (error != 0 && errorText_.empty()) errorText_ = link.decoder->ErrorText();
  return error;
}

std::int32_t ContentChain::Finish() {
  for (Link& link : links_) {
    if (const std::int32_t error = link.decoder->Finish()) {
      if (errorText_.empty()) errorText_ = link.decoder->ErrorText();
      return error;
    }
  }
  return 0;
}

std::int32_t ContentChain::Fail(std::int32_t error, std::string text) {
  errorText_ = std::move(text) + ".";
  return error;
}

}  // namespace netro
