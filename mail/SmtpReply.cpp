#include "mail/SmtpReply.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kCodeSize = 3;

// True for "250 " and "250-", none while there are only digits yet.
std::optional<bool> LooksLikeReply(std::string_view text) {
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  if (digits == text.size() && digits <= kCodeSize) return std::nullopt;
  return digits == kCodeSize && (text[digits] == ' ' || text[digits] == '-');
}

}  // namespace

void SmtpReply::Begin() {
  if (text_.ends_with('\r')) {
    rest_ = Rest::LineFeed;
  } else if (!text_.empty()) {
    rest_ = text_.ends_with(kLineEnd) ? Rest::None : Rest::Line;
  }
  text_.clear();
  line_ = scanned_ = 0;
  code_ = 0;
}

void SmtpReply::Next() {
  const std::size_t end = End();
  if (end == text_.npos) return Begin();
  text_.erase(0, end);
  line_ = scanned_ = 0;
  code_ = 0;
  Judge();
}

bool SmtpReply::IsForeign() const {
  const std::size_t end = text_.find_first_of("\r\n");
  return end != text_.npos && LooksLikeReply(std::string_view(text_).substr(0, end)) == false;
}

// Behind the line end of the reply; npos while that is not there.
std::size_t SmtpReply::End() const {
  const std::size_t end = text_.find(kLineEnd, line_);
  return code_ == 0 || end == text_.npos ? text_.npos : end + kLineEnd.size();
}

bool SmtpReply::Add(std::string_view bytes) {
  if (text_.size() < scanned_) line_ = scanned_ = 0;
  const auto room = kLargest - std::min(kLargest, text_.size());
  text_.append(bytes.substr(0, room));
  if (code_ == 0 && DropRest()) Judge();
  return bytes.size() <= room;
}

// The rest of the line that the reply before was taken from. Where it looks like a reply it is one:
// of a server that sends no line ends. False while that cannot be told.
bool SmtpReply::DropRest() {
  if (rest_ == Rest::None || text_.empty()) return true;
  if (rest_ == Rest::LineFeed) {
    if (text_.front() == '\n') text_.erase(0, 1);
  } else {
    const auto isReply = LooksLikeReply(text_);
    if (!isReply) return false;
    const std::size_t end = *isReply ? 0 : text_.find(kLineEnd, scanned_);
    scanned_ = text_.size() - 1;
    if (end == text_.npos) return false;
    if (!*isReply) text_.erase(0, end + kLineEnd.size());
  }
  scanned_ = 0;
  rest_ = Rest::None;
  return true;
}

void SmtpReply::Judge() {
  for (;;) {
    const std::size_t end = text_.find(kLineEnd, scanned_);
    if (JudgeLine(std::string_view(text_).substr(line_, end - line_))) return;
    if (end == text_.npos) break;
    line_ = scanned_ = end + kLineEnd.size();
  }
  scanned_ = text_.size() - (text_.ends_with('\r') ? 1 : 0);
}

bool SmtpReply::JudgeLine(std::string_view line) {
  if (line.size() <= kCodeSize || line[kCodeSize] != ' ') return false;
  std::uint32_t number = 0;
  std::from_chars(line.data(), line.data() + kCodeSize, number);
  code_ = static_cast<std::int32_t>(number);
  return code_ != 0;
}

}  // namespace netro
