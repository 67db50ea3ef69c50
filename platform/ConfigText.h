// How configuration files of the system are taken apart: views only, nothing is copied.
#pragma once

#include <algorithm>
#include <string_view>

namespace netro {

/// Blanks, tabs, the CR of files from other systems, and every other control: no word holds one.
inline bool IsConfigBlank(char c) { return static_cast<unsigned char>(c) <= ' '; }

/// Takes the next line off `text` and returns it without its end. The last line needs no end.
inline std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(text.size(), line.size() + 1));
  return line;
}

/// Takes the next word off `line`; empty when there is none.
inline std::string_view TakeWord(std::string_view& line) {
  const auto begin = std::ranges::find_if_not(line, IsConfigBlank);
  const auto end = std::find_if(begin, line.end(), IsConfigBlank);
  const std::string_view word(begin, end);
  line = std::string_view(end, line.end());
  return word;
}

/// A name is the same with and without the dot of the root behind it.
inline std::string_view WithoutLastDot(std::string_view name) {
  if (name.ends_with('.')) name.remove_suffix(1);
  return name;
}

}  // namespace netro
