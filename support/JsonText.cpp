#include "support/JsonText.h"

#include <cstddef>

#include "support/Utf8.h"

namespace netro {
namespace {

void AppendEscape(std::string& out, char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  out += "\\u00";
  out += kDigits[(c >> 4) & 0xF];
  out += kDigits[c & 0xF];
}

}  // namespace

std::string JsonText(std::string_view text) {
  std::string out = "\"";
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = Utf8Length(text, at);
    const char c = text[at];
    if (length == 0) {
      AppendUtf8(out, 0xFFFD);
    } else if (c == '"' || c == '\\') {
      (out += '\\') += c;
    } else if (length == 1 && (c < ' ' || c == '\x7F')) {
      AppendEscape(out, c);
    } else {
      out.append(text, at, length);
    }
    at += length == 0 ? 1 : length;
  }
  return out + '"';
}

}  // namespace netro
