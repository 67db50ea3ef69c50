#include "mail/SmtpData.h"

#include <algorithm>
#include <utility>

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kEndOfData = "\r\n.\r\n";

}  // namespace

SmtpData::SmtpData(std::string_view message, DotRule rule)
    : message_(message), rule_(rule), dot_(FindDot(0)) {
  size_ = message.size() + kEndOfData.size();
  for (std::size_t at = dot_; at != message.npos; at = FindDot(at + 1)) ++size_;
}

// Line by line: of lone dots in a row, two share each line end.
std::size_t SmtpData::FindDot(std::size_t from) const {
  for (auto at = message_.find('.', from); at != message_.npos; at = message_.find('.', at + 1)) {
    const bool begins = at == 0 || message_.substr(0, at).ends_with(kLineEnd);
    if (!begins) continue;
    const bool ends = at + 1 == message_.size() || message_.substr(at + 1).starts_with(kLineEnd);
    if (ends || rule_ == DotRule::AllDots) return at;
  }
  return message_.npos;
}

// The pieces are cut behind each dot that gets another.
bool SmtpData::NextPiece() {
  if (inserted_.empty() && ended_) return false;
  piece_ = std::exchange(inserted_, {});
  if (!piece_.empty()) return true;
  ended_ = dot_ == message_.npos;
  const std::size_t end = ended_ ? message_.size() : dot_ + 1;
  piece_ = message_.substr(position_, end - position_);
  inserted_ = ended_ ? kEndOfData : kEndOfData.substr(kLineEnd.size(), 1);
  position_ = end;
  if (!ended_) dot_ = FindDot(end);
  return true;
}

std::string_view SmtpData::Next(std::size_t size) {
  while (piece_.empty() && NextPiece()) {
  }
  if (piece_.size() >= size) {
    const std::string_view next = piece_.substr(0, size);
    piece_.remove_prefix(size);
    return next;
  }
  block_.assign(std::exchange(piece_, {}));
  while (block_.size() < size && NextPiece()) {
    const std::size_t taken = std::min(piece_.size(), size - block_.size());
    block_.append(piece_, 0, taken);
    piece_.remove_prefix(taken);
  }
  return block_;
}

}  // namespace netro
