#include "dns/LookupQuery.h"

#include <algorithm>
#include <string_view>

#include "platform/Random.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kOptSize = 11;
constexpr std::size_t kTypeAndClass = 4;
constexpr std::uint8_t kReplyBit = 128;
constexpr std::uint8_t kCaseBit = 32;
constexpr std::uint16_t kReplySize = 1'232;  // fits every path that takes IPv6

bool IsLetter(std::uint8_t byte) {
  const int lower = byte | kCaseBit;
  return lower >= 'a' && lower <= 'z';
}

// `bits` are the first `left` of the random ones. Length bytes of labels are no letters.
void MixCase(std::span<std::uint8_t> name, std::uint32_t bits, int left) {
  for (std::uint8_t& byte : name) {
    if (!IsLetter(byte)) continue;
    if (left-- == 0) {
      bits = RandomNumber();
      left = 31;
    }
    if ((bits & 1) != 0) byte ^= kCaseBit;
    bits >>= 1;
  }
}

std::string_view TextOf(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::optional<LookupQuery> LookupQuery::Make(DnsQuestion question, bool extended) {
  const std::uint32_t random = RandomNumber();
  question.id = static_cast<std::uint16_t>(random);
  question.udpSize = extended ? kReplySize : 0;
  auto composed = ComposeQuery(question);
  if (!composed) return std::nullopt;
  LookupQuery query;
  query.message = std::move(*composed);
  query.questionEnd = query.message.size() - (extended ? kOptSize : 0);
  query.extended = extended;
  const auto asked = std::span(query.message).first(query.questionEnd);
  MixCase(asked.subspan(kHeaderSize).first(asked.size() - kHeaderSize - kTypeAndClass), random >> 16, 16);
  return query;
}

LookupQuery::Match LookupQuery::MatchOf(std::span<const std::uint8_t> reply) const {
  const auto asked = std::span(message).first(questionEnd);
  if (reply.size() < kHeaderSize || !std::ranges::equal(reply.first(2), asked.first(2)) ||
      (reply[2] & kReplyBit) == 0) {
    return Match::None;
  }
  if ((reply[4] | reply[5]) == 0 && (reply[3] & 15) != 0) return Match::Bare;
  if (reply.size() < asked.size() || reply[4] != 0 || reply[5] != 1) return Match::None;
  const auto wanted = TextOf(asked.subspan(kHeaderSize));
  const auto repeated = TextOf(reply.subspan(kHeaderSize, wanted.size()));
  if (wanted == repeated) return Match::Full;
  return EqualsIgnoreCase(wanted, repeated) ? Match::OtherCase : Match::None;
}

}  // namespace netro
