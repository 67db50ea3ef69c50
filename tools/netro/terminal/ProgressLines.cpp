// A line for each transfer that is under way.

#include "terminal/ProgressLines.h"

#include <algorithm>
#include <cstdio>

#include "terminal/Encoding.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"

namespace netro::tool {
namespace {

void Write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

ProgressLines::Line::Line(ProgressLines& lines, const std::string& label,
                          std::function<Progress()> progress)
    : lines_(lines), label_(OnOneLine(label)), progress_(std::move(progress)) {
  const auto place = std::ranges::find(lines_.lines_, nullptr);
  if (place == lines_.lines_.end()) {
    lines_.lines_.push_back(this);
  } else {
    *place = this;
  }
}

ProgressLines::Line::~Line() { std::ranges::replace(lines_.lines_, this, nullptr); }

ProgressLines::ProgressLines() {
  constexpr std::int32_t kMilliseconds = 100;
  if (IsDecorated(Stream::Error)) redraw_.emplace(kMilliseconds, [this] { Redraw(); });
}

void ProgressLines::Redraw() {
  for (Line* line : lines_) {
    if (line == nullptr) continue;
    const Progress progress = line->progress_();
    line->transfer_.Measure(progress.done, progress.total);
  }
  Draw();
}

void ProgressLines::Draw() {
  if (!IsInForeground()) return;
  const std::vector<std::string> texts = Texts();
  if (texts.empty()) return Clear();
  std::string output = "\r";
  if (drawn_ > 1) output += "\x1b[" + std::to_string(drawn_ - 1) + "A";
  for (const std::string& text : texts) {
    output += (&text == &texts.front() ? "" : "\n") + text + "\x1b[K";
  }
  if (texts.size() < drawn_) output += "\x1b[J";
  Write(output);
  drawn_ = texts.size();
}

/// As many lines as the terminal has rows for.
std::vector<std::string> ProgressLines::Texts() const {
  // A line as wide as the terminal would wrap on some.
  const auto width = static_cast<std::size_t>(std::max(Width(Stream::Error) - 1, 1));
  const auto rows = static_cast<std::size_t>(std::max(Height(Stream::Error) - 1, 1));
  const std::size_t room = rows - (footer_.empty() || rows == 1 ? 0 : 1);
  const std::size_t labelWidth = LabelWidth(width);
  std::vector<std::string> texts;
  for (const Line* line : lines_) {
    if (line == nullptr || texts.size() == room) continue;
    std::string text = Fitted(ShortenedInside(line->label_, labelWidth), labelWidth);
    text += labelWidth > 0 ? "  " : "";
    const std::size_t begin = labelWidth > 0 ? labelWidth + 2 : 0;
    texts.push_back(text + line->transfer_.Text(width - std::min(width, begin)));
  }
  if (!footer_.empty() && rows > 1 && !texts.empty()) texts.push_back(Shortened(footer_, width));
  return texts;
}

/// The longest label, which may take a third of the line.
std::size_t ProgressLines::LabelWidth(std::size_t width) const {
  std::size_t longest = 0;
  for (const Line* line : lines_) {
    if (line != nullptr) longest = std::max(longest, CharacterCount(line->label_));
  }
  return std::min(longest, width / 3);
}

void ProgressLines::Clear() {
  if (drawn_ == 0) return;
  std::string output = "\r\x1b[K";
  for (; drawn_ > 1; --drawn_) output += "\x1b[A\r\x1b[K";
  drawn_ = 0;
  Write(output);
}

}  // namespace netro::tool
