// Turns a message number and its arguments into the finished text. Thread: any.

#include <netro/Localization.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/MessageTexts.h"

namespace netro {
namespace {

/// The argument that "%1" to "%9" at the start of `text` stands for; null when there is none.
const std::string* ArgumentAt(std::string_view text, const std::vector<std::string>& arguments) {
  if (text.size() < 2 || text[1] < '1' || text[1] > '9') return nullptr;
  const auto index = static_cast<std::size_t>(text[1] - '1');
  return index < arguments.size() ? &arguments[index] : nullptr;
}

}  // namespace

// What was put in is not searched again: an argument may hold a "%1" of its own.
std::string GetMessageText(std::int32_t Number, const std::vector<std::string>& Arguments) {
  std::string_view text = FindMessageText(Number);
  std::string result;
  for (auto at = text.find('%'); at != text.npos; at = text.find('%')) {
    result.append(text, 0, at);
    text.remove_prefix(at);
    const std::string* argument = ArgumentAt(text, Arguments);
    result.append(argument != nullptr ? *argument : "%");
    text.remove_prefix(argument != nullptr ? 2 : 1);
  }
  return result.append(text);
}

}  // namespace netro
