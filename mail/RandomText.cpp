#include "mail/RandomText.h"

#include <cstdint>
#include <limits>
#include <string_view>

#include "platform/Random.h"

namespace netro {
namespace {

constexpr std::string_view kAlphabet =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

}  // namespace

std::string RandomText(std::size_t length) {
  constexpr auto kCount = static_cast<std::uint32_t>(kAlphabet.size());
  // Numbers from here on would make the first characters of the alphabet likelier.
  constexpr std::uint32_t kEnd = std::numeric_limits<std::uint32_t>::max() / kCount * kCount;
  std::string text;
  text.reserve(length);
  while (text.size() < length) {
    const std::uint32_t number = RandomNumber();
    if (number < kEnd) text += kAlphabet[number % kCount];
  }
  return text;
}

}  // namespace netro
