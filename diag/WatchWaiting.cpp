#include "diag/WatchWaiting.h"

#include <charconv>

namespace netro {

std::string JoinFields(const std::vector<std::string>& fields) {
  std::string text;
  for (const std::string& field : fields) text += std::to_string(field.size()) + ":" + field;
  return text;
}

std::optional<std::vector<std::string>> SplitFields(std::string_view text) {
  std::vector<std::string> fields;
  while (!text.empty()) {
    std::size_t size = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (error != std::errc() || text.empty() || text.front() != ':') return std::nullopt;
    text.remove_prefix(1);
    if (size > text.size()) return std::nullopt;
    fields.emplace_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return fields;
}

}  // namespace netro
