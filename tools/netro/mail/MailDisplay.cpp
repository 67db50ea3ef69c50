// What a user sees of mail sessions while they run.

#include "mail/MailDisplay.h"

#include <cstdio>

#include "terminal/Encoding.h"

namespace netro::tool {

void MailDisplay::DisplayProtocol(const std::string& LastResult) {
  bar_.Clear();
  total_ = 0;
  if (transcript_) std::fputs((Printable(LastResult) + "\n").c_str(), stderr);
}

void MailDisplay::DataStatus(std::int32_t SendBytes, std::int32_t CompleteBytes) {
  sent_ = SendBytes;
  total_ = CompleteBytes;
}

void MailDisplay::Redraw() {
  if (total_ > 0) bar_.Update(sent_, total_);
}

}  // namespace netro::tool
