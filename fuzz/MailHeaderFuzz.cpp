// Makes of a text what the first byte chooses, a field, a quoted-printable text or a header block.
// Whatever the text, it makes one field, of lines that servers take; and which line ends a message
// has does not matter.
#include <iterator>

#include "fuzz/Fuzz.h"
#include "mail/HeaderBlock.h"
#include "support/MailHeader.h"
#include "support/QuotedPrintable.h"
#include "support/Utf8.h"

namespace {

// Without line ends, but for CR LF at the end of each.
void CheckLines(std::string_view text, std::size_t longest) {
  for (std::size_t end = 0; !text.empty(); text.remove_prefix(std::min(end + 2, text.size()))) {
    end = std::min(text.find_first_of("\r\n"), text.size());
    Require(end <= longest);
    Require(end == text.size() || text.substr(end, 2) == "\r\n");
  }
}

void CheckField(std::string_view field) {
  constexpr std::size_t kLongestLine = 998;
  Require(field.ends_with("\r\n") && netro::HasHeaderBlock(field));
  CheckLines(field, kLongestLine);
  for (std::size_t at = field.find('\n') + 1; at < field.size(); at = field.find('\n', at) + 1) {
    Require(field[at] == ' ' || field[at] == '\t');
    Require(field.find_first_not_of(" \t", at) != field.find('\r', at));
  }
}

void CheckText(std::string_view text) {
  std::string field;
  netro::AppendTextField(field, "Subject", text);
  Require(netro::IsAscii(field));
  CheckField(field);
}

void CheckAddresses(std::string_view text) {
  std::string field;
  netro::AppendAddressField(field, "To", text);
  CheckField(field);
}

void CheckParameter(std::string_view text) {
  std::string field = "Content-Type: text/plain";
  netro::AppendParameter(field, "name", text);
  field += "\r\n";
  Require(netro::IsAscii(field));
  CheckField(field);
}

void CheckQuoted(std::string_view text) {
  std::string quoted;
  netro::AppendQuotedPrintable(quoted, text);
  Require(netro::IsAscii(quoted));
  CheckLines(quoted, 76);
}

void CheckBlock(std::string_view text) {
  std::string unixEnds;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && text.substr(i + 1, 1) == "\n") continue;
    unixEnds += text[i] == '\r' ? '\n' : text[i];
  }
  Require(netro::HasHeaderBlock(unixEnds) == netro::HasHeaderBlock(text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr void (*kChecks[])(std::string_view) = {CheckText, CheckAddresses, CheckParameter,
                                                   CheckQuoted, CheckBlock};
  FuzzBytes text(data, size);
  kChecks[TakeByte(text) % std::size(kChecks)](TextOf(text));
  return 0;
}
