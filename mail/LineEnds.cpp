#include "mail/LineEnds.h"

namespace netro {

std::string BareLineEnd(std::string_view text) {
  for (auto at = text.find_first_of("\r\n"); at != text.npos;
       at = text.find_first_of("\r\n", at + 2)) {
    if (text.substr(at, 2) == "\r\n") continue;
    return std::string("The message has a bare ") + (text[at] == '\r' ? "CR" : "LF") +
           " at byte " + std::to_string(at) + " (StrictLines).";
  }
  return {};
}

}  // namespace netro
