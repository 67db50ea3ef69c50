#include "mail/FinishedText.h"

#include <algorithm>

#include "mail/HeaderBlock.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kBlock = 32768;
constexpr std::size_t kLongestName = 998;  // as lines are (RFC 5322, section 2.1.1)

bool IsContinued(std::string_view line) { return line.starts_with(' ') || line.starts_with('\t'); }

}  // namespace

std::int32_t FinishedText::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = 0;
  while (given_ == made_.size() && !ended_) {
    if (const std::int32_t error = Refill()) return error;
  }
  got = made_.copy(reinterpret_cast<char*>(room.data()), room.size(), given_);
  given_ += got;
  return 0;
}

bool FinishedText::Rewind() {
  place_ = Place::Name;
  leavesOut_ = afterCr_ = lineIsOpen_ = ended_ = false;
  name_.clear();
  made_.clear();
  given_ = 0;
  return message_->Rewind();
}

std::int32_t FinishedText::Refill() {
  if (block_.empty()) {  // a short message is not worth clearing a whole one
    const std::uint64_t length = message_->Length().value_or(kBlock);
    block_.resize(static_cast<std::size_t>(std::clamp<std::uint64_t>(length, 1, kBlock)));
  }
  std::size_t got = 0;
  if (const std::int32_t error = message_->Read(block_, got)) return error;
  made_.clear();
  given_ = 0;
  ended_ = got == 0;
  Take({reinterpret_cast<const char*>(block_.data()), got});
  if (ended_ && lineIsOpen_) EndLine();
  return 0;
}

void FinishedText::Take(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto isEnd = [](char c) { return c == '\r' || c == '\n'; };
    const auto end = std::ranges::find_if(bytes, isEnd);
    const std::string_view text(bytes.begin(), end);
    TakeText(text);
    bytes.remove_prefix(text.size());
    if (bytes.empty()) return;
    const bool belongs = afterCr_ && bytes.front() == '\n';
    afterCr_ = bytes.front() == '\r';
    if (!belongs) EndLine();
    bytes.remove_prefix(1);
  }
}

void FinishedText::TakeText(std::string_view text) {
  if (text.empty()) return;
  afterCr_ = false;
  lineIsOpen_ = true;
  if (place_ == Place::Name) {
    name_ += text;  // bounded by the block
    if (name_.size() > kLongestName || text.find(':') != text.npos) EndName();
  } else if (place_ != Place::LeftOut) {
    made_ += text;
  }
}

// Blanks before the colon are of old (RFC 5322, section 4.5).
void FinishedText::EndName() {
  if (!IsContinued(name_)) {
    leavesOut_ = !keepBlindCopies_ && IsBlindCopyName(Trim(name_.substr(0, name_.find(':'))));
  }
  place_ = leavesOut_ ? Place::LeftOut : Place::Field;
  if (!leavesOut_) made_ += name_;
  name_.clear();
}

void FinishedText::EndLine() {
  if (place_ == Place::Name) lineIsOpen_ ? EndName() : void(place_ = Place::Body);
  if (place_ != Place::LeftOut) made_ += "\r\n";
  if (place_ != Place::Body) place_ = Place::Name;
  lineIsOpen_ = false;
}

}  // namespace netro
