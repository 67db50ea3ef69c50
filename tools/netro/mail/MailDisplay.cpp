// What a user sees of mail sessions while they run.

#include "mail/MailDisplay.h"

#include <cstdio>

#include "terminal/Encoding.h"

namespace netro::tool {

void MailDisplay::DisplayProtocol(const std::string& LastResult) {
  line_.reset();
  lines_.Clear();
  if (transcript_) std::fputs((ShownText(LastResult) + "\n").c_str(), stderr);
}

void MailDisplay::DataStatus(std::int32_t SendBytes, std::int32_t CompleteBytes) {
  sent_ = SendBytes;
  total_ = CompleteBytes;
  if (!line_) line_.emplace(lines_, "", [this] { return Progress{1.0 * sent_, 1.0 * total_}; });
}

}  // namespace netro::tool
