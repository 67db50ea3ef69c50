// Turns a message number and its arguments into the finished text. Thread: any.

#include <netro/Localization.h>

#include <cstddef>
#include <string_view>

#include "support/MessageTexts.h"

namespace netro {
namespace {

/// Replaces every `placeholder` of `text` in one pass. What was put in is not searched again, so an
/// argument that holds its own placeholder ends as well.
std::string Replace(std::string_view text, std::string_view placeholder, std::string_view value) {
  std::string result;
  std::size_t begin = 0;
  for (auto at = text.find(placeholder); at != text.npos; at = text.find(placeholder, begin)) {
    result.append(text, begin, at - begin).append(value);
    begin = at + placeholder.size();
  }
  return result.append(text, begin);
}

}  // namespace

std::string GetMessageText(std::int32_t Number, const std::vector<std::string>& Arguments) {
  std::string text(FindMessageText(Number));
  for (std::size_t i = 0; i < Arguments.size(); ++i) {
    text = Replace(text, '%' + std::to_string(i + 1), Arguments[i]);
  }
  return text;
}

}  // namespace netro
