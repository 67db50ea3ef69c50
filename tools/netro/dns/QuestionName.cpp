#include "dns/QuestionName.h"

#include <netro/RecordText.h>

#include <cstddef>
#include <cstdint>

namespace netro::tool {

std::string_view QuestionNameBytes(std::string_view message) {
  constexpr std::size_t kHeaderSize = 12;
  constexpr std::uint8_t kLongestLabel = 63;
  for (std::size_t at = kHeaderSize; at < message.size();) {
    const auto size = static_cast<std::uint8_t>(message[at++]);
    if (size == 0) return message.substr(kHeaderSize, at - kHeaderSize);
    if (size > kLongestLabel) break;
    at += size;
  }
  return {};
}

std::string QuestionNameText(std::string_view message) {
  return RecordDataText(TYPE_PTR, QuestionNameBytes(message));
}

}  // namespace netro::tool
