// Fuzzes the reader of HTML: whatever it is given, the text stays text in whole lines.

#include "fuzz/Fuzz.h"
#include "support/HtmlText.h"
#include "support/Utf8.h"

namespace {

bool HasWholeLines(std::string_view text) {
  for (std::size_t at = text.find_first_of("\r\n"); at != text.npos;
       at = text.find_first_of("\r\n", at + 2)) {
    if (!text.substr(at).starts_with("\r\n")) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string html(data, data + size);
  const std::string text = netro::HtmlToText(html);
  Require(text.size() <= 2 * size);
  Require(HasWholeLines(text));
  Require(text.find('\0') == text.npos);
  Require(netro::IsUtf8(text) || !netro::IsUtf8(html));
  return 0;
}
