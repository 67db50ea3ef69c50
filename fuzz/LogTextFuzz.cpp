// Feeds what others may have named or said to all that shows texts: a log, a terminal, a message
// about a URL. Nothing that disturbs these is left, and what was made harmless stays as it is.
#include <netro/ShownText.h>

#include "fuzz/Fuzz.h"
#include "platform/LogBuffer.h"

namespace {

void CheckLog(std::string_view text) {
  std::string line, again;
  netro::AppendLogText(line, text);
  for (const char c : line) Require(c == '\t' || (c != 0x7F && static_cast<unsigned char>(c) >= ' '));
  Require(netro::IsHarmlessText(line) || !netro::IsUtf8(text));
  netro::AppendLogText(again, line);
  Require(again == line);
}

void CheckShown(std::string_view text) {
  const std::string shown = netro::ShownText(text);
  Require(netro::IsUtf8(shown) && netro::IsHarmlessText(shown) && netro::ShownText(shown) == shown);
  if (netro::IsHarmlessText(text) && text.find('\r') == text.npos) Require(shown == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = TextOf({data, size});
  CheckLog(text);
  CheckShown(text);
  return 0;
}
