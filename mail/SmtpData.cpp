#include "mail/SmtpData.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "socket/SocketErrors.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kLastLine = ".\r\n";
constexpr std::size_t kBlock = 65536;
// Whether a dot is a line of its own is told by two characters before and two behind it.
constexpr std::size_t kAround = kLineEnd.size();

/// The fields are looked for in the first block.
bool HasUtf8Header(std::string_view block) {
  const std::string_view header = block.substr(0, block.find("\r\n\r\n"));
  return !IsAscii(header) && IsUtf8(header);
}

}  // namespace

SmtpData::SmtpData(std::string_view message, DotRule rule)
    : SmtpData(std::make_unique<MemorySource>(message), rule, LastLine::IsOpen) {}

SmtpData::SmtpData(std::unique_ptr<ByteSource> text, DotRule rule, LastLine last)
    : SmtpData(std::move(text), rule, last, SmtpFacts()) {
  Measure();
}

SmtpData::SmtpData(std::unique_ptr<ByteSource> text, DotRule rule, LastLine last, SmtpFacts facts)
    : text_(std::move(text)), rule_(rule), last_(last), facts_(facts) {
  Rewind();
}

void SmtpData::Measure() {
  for (auto block = Next(kBlock); !block.empty(); block = Next(kBlock)) {
    if (facts_.size == 0) facts_.utf8Header = HasUtf8Header(block);
    facts_.size += block.size();
    facts_.has8Bit = facts_.has8Bit || !IsAscii(block);
  }
  if (error_ == 0) Rewind();
}

void SmtpData::Rewind() {
  error_ = 0;
  text_->Rewind();
  begin_ = end_ = textEnd_ = 0;
  owesDot_ = false;
}

std::string SmtpData::ErrorText() const {
  const std::string text = text_->ErrorText();
  return text.empty() ? SocketErrorText(error_) : text;
}

std::string_view SmtpData::View(std::size_t from, std::size_t to) const {
  return {buffer_.get() + from, to - from};
}

// Room for what was gone, `size` bytes, what is looked at behind them, and the end. A short text
// takes no more than it needs.
void SmtpData::MakeRoom(std::size_t size) {
  const auto length = text_->Length();
  size = std::max(size, kBlock);
  if (length) size = static_cast<std::size_t>(std::min<std::uint64_t>(size, *length));
  size += 2 * kAround + kLineEnd.size() + kLastLine.size();
  if (size <= capacity_) return;
  auto larger = std::make_unique<char[]>(size);
  if (end_ > 0) std::memcpy(larger.get(), buffer_.get(), end_);
  buffer_ = std::move(larger);
  capacity_ = size;
}

/// Reads until `size` bytes and what decides about dots among them are there, or the end.
bool SmtpData::Fill(std::size_t size) {
  if (textEnd_ > 0 || (begin_ > 0 && end_ - begin_ >= size + kAround)) return true;
  MakeRoom(size);
  if (begin_ == 0) {  // the text begins a line
    std::memcpy(buffer_.get(), kLineEnd.data(), kAround);
    begin_ = end_ = kAround;
  }
  std::memmove(buffer_.get(), buffer_.get() + begin_ - kAround, end_ - begin_ + kAround);
  end_ -= begin_ - kAround;
  begin_ = kAround;
  const std::size_t stop = capacity_ - kLineEnd.size() - kLastLine.size();
  while (textEnd_ == 0 && end_ - begin_ < size + kAround) {
    std::size_t got = 0;
    const std::span room(reinterpret_cast<std::uint8_t*>(buffer_.get()) + end_, stop - end_);
    // A text as long as it said it was leaves room for its end to be found.
    error_ = text_->Read(room, got);
    if (error_ != 0) return false;
    end_ += got;
    if (got == 0) AddEnd();
  }
  return true;
}

void SmtpData::AddEnd() {
  const auto add = [this](std::string_view text) {
    std::memcpy(buffer_.get() + end_, text.data(), text.size());
    end_ += text.size();
  };
  if (last_ == LastLine::IsOpen || View(end_ - kAround, end_) != kLineEnd) add(kLineEnd);
  textEnd_ = end_;
  add(kLastLine);
}

bool SmtpData::AppendPlain(std::string& to) {
  const DotRule rule = std::exchange(rule_, DotRule::None);
  Rewind();
  for (auto block = Next(kBlock); !block.empty(); block = Next(kBlock)) to += block;
  rule_ = rule;
  if (error_ != 0) return false;
  to.resize(to.size() - kLastLine.size());
  Rewind();
  return true;
}

// Line by line: of lone dots in a row, two share each line end.
std::size_t SmtpData::FindDot(std::size_t from, std::size_t to) const {
  if (textEnd_ > 0) to = std::min(to, textEnd_);
  while (from < to && rule_ != DotRule::None) {
    const void* const found = std::memchr(buffer_.get() + from, '.', to - from);
    if (found == nullptr) break;
    const auto at = static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.get());
    from = at + 1;
    if (View(at - kAround, at) != kLineEnd) continue;
    if (rule_ == DotRule::AllDots || View(from, from + kAround) == kLineEnd) return at;
  }
  return std::string_view::npos;
}

std::string_view SmtpData::Next(std::size_t size) {
  if (error_ != 0 || !Fill(size)) return {};
  const std::size_t stop = std::min(begin_ + size, end_);
  if (owesDot_ || FindDot(begin_, stop) != std::string_view::npos) return WithDots(size);
  return View(std::exchange(begin_, stop), stop);
}

std::string_view SmtpData::WithDots(std::size_t size) {
  block_.clear();
  while (block_.size() < size) {
    if (std::exchange(owesDot_, false)) {
      block_ += '.';
      continue;
    }
    const std::size_t stop = std::min(begin_ + size - block_.size(), end_);
    if (stop == begin_) break;
    const std::size_t dot = FindDot(begin_, stop);
    owesDot_ = dot != std::string_view::npos;
    const std::size_t end = owesDot_ ? dot + 1 : stop;
    block_.append(View(std::exchange(begin_, end), end));
  }
  return block_;
}

}  // namespace netro
