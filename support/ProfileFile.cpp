// The text of a profile (INI) file as a document. Thread: any, one object on one thread at a time.

#include "support/ProfileFile.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // which some editors begin with

/// `line` without its line end.
std::string_view Content(std::string_view line) {
  if (line.ends_with('\n')) {
    line.remove_suffix(line.ends_with("\r\n") ? 2 : 1);
  }
  return line;
}

/// The name in a section's line "[name]", nothing for every other line.
std::optional<std::string_view> HeaderName(std::string_view content) {
  const std::size_t end = content.find(']');
  if (!content.starts_with('[') || end == content.npos) {
    return std::nullopt;
  }
  return Trimmed(content.substr(1, end - 1));
}

}  // namespace

bool ProfileFile::CanHoldSection(std::string_view name) {
  return CanHoldValue(name) && !name.empty() && name.find(']') == name.npos;
}

bool ProfileFile::CanHoldKey(std::string_view key) {
  return CanHoldValue(key) && !key.empty() && key.find('=') == key.npos && key.front() != '[' &&
         key.front() != ';' && key.front() != '#';
}

bool ProfileFile::CanHoldValue(std::string_view value) {
  return !HasControl(value) && Trimmed(value).size() == value.size();
}

ProfileFile ProfileFile::Parse(std::string_view text) {
  ProfileFile file;
  const std::size_t firstEnd = text.find('\n');
  if (firstEnd != text.npos && firstEnd > 0 && text[firstEnd - 1] == '\r') {
    file.lineEnd_ = "\r\n";
  }
  file.lastLineEnds_ = text.empty() || text.ends_with('\n');
  std::size_t begin = 0;
  if (text.starts_with(kByteOrderMark)) {
    AddText(file.sections_.back(), kByteOrderMark);
    begin = kByteOrderMark.size();
  }
  for (auto end = firstEnd; end != text.npos; end = text.find('\n', begin)) {
    file.AddLine(text.substr(begin, end + 1 - begin));
    begin = end + 1;
  }
  if (!file.lastLineEnds_) {
    file.AddLine(std::string(text.substr(begin)).append(file.lineEnd_));
  }
  return file;
}

ProfileFile::Span ProfileFile::SpanOf(std::string_view part, std::string_view line) {
  return {static_cast<std::size_t>(part.data() - line.data()), part.size()};
}

void ProfileFile::AddLine(std::string_view text) {
  ++lineCount_;
  const std::string_view content = Trimmed(Content(text));
  if (content.empty()) {
    sections_.back().blanks += text;
    return;
  }
  if (const auto name = HeaderName(content)) {
    AddSection(text, SpanOf(*name, text));
    return;
  }
  Section& section = sections_.back();
  AddText(section, std::exchange(section.blanks, {}));
  const std::size_t sign = content.find('=');
  const std::string_view key = Trimmed(content.substr(0, sign));
  if (sign == content.npos || !CanHoldKey(key)) {
    AddText(section, text);
    return;
  }
  const std::string_view value = Trimmed(content.substr(sign + 1));
  AddEntry(section,
           {std::string(text), SpanOf(key, text), SpanOf(value, text), {}, false, lineCount_});
}

// Many comments in a row are one piece: they cost what their text costs.
void ProfileFile::AddText(Section& section, std::string_view text) {
  if (text.empty()) {
    return;
  }
  if (section.lines.empty() || !section.lines.back().isText) {
    section.lines.emplace_back().isText = true;
  }
  section.lines.back().text += text;
}

void ProfileFile::AddSection(std::string_view text, Span name) {
  Section& section = sections_.emplace_back();
  section.header = {std::string(text), name, {}, {}, false, lineCount_};
  if (byName_.Find(NameOf()(&section)) == nullptr) {
    byName_.Add(&section);
  }
}

void ProfileFile::AddEntry(Section& section, Line entry) {
  const auto line = section.lines.insert(section.lines.end(), std::move(entry));
  if (const auto* const first = section.entries.Find(KeyOf()(line))) {
    line->key = {};
    (*first)->repetitions.push_back(line);
  } else {
    section.entries.Add(line);
  }
}

std::string ProfileFile::Text() const {
  std::string text;
  for (const Section& section : sections_) {
    text += section.header.text;
    for (const Line& line : section.lines) {
      text += line.text;
    }
    text += section.blanks;
  }
  if (!lastLineEnds_ && !changed_) {
    text.resize(text.size() - lineEnd_.size());
  }
  return text;
}

ProfileFile::Line* ProfileFile::Find(std::string_view section, std::string_view key) const {
  const auto* const place = byName_.Find(section);
  const auto* const line = place == nullptr ? nullptr : (*place)->entries.Find(key);
  return line == nullptr ? nullptr : &**line;
}

std::optional<std::string> ProfileFile::Value(std::string_view section,
                                              std::string_view key) const {
  const Line* const line = Find(section, key);
  if (line == nullptr) {
    return std::nullopt;
  }
  return std::string(Part(*line, line->value));
}

std::vector<std::string> ProfileFile::Keys(std::string_view section) const {
  std::vector<std::string> keys;
  if (const auto* const place = byName_.Find(section)) {
    for (const Line& line : (*place)->lines) {
      if (line.key.size > 0) {
        keys.emplace_back(Part(line, line.key));
      }
    }
  }
  return keys;
}

std::size_t ProfileFile::LineOf(std::string_view section, std::string_view key) const {
  const Line* const line = Find(section, key);
  return line == nullptr ? 0 : line->number;
}

std::size_t ProfileFile::RepeatedSection(std::string_view section) const {
  const auto* const first = byName_.Find(section);
  for (const Section& other : sections_) {
    const bool isSame = EqualsIgnoreCase(NameOf()(&other), section) && !section.empty();
    if (isSame && first != nullptr && &other != *first) return other.header.number;
  }
  return 0;
}

std::size_t ProfileFile::RepeatedKey(std::string_view section) const {
  const auto* const first = byName_.Find(section);
  if (first == nullptr) return 0;
  std::size_t found = 0;
  for (const Line& line : (*first)->lines) {
    if (line.repetitions.empty()) continue;
    const std::size_t number = line.repetitions.front()->number;
    found = found == 0 ? number : std::min(found, number);
  }
  return found;
}

bool ProfileFile::Set(std::string_view section, std::string_view key, std::string_view value) {
  if (!CanHoldSection(section) || !CanHoldKey(key) || !CanHoldValue(value)) {
    return false;
  }
  changed_ = true;
  if (Line* const line = Find(section, key)) {
    line->text.replace(line->value.begin, line->value.size, value);
    line->value.size = value.size();
    return true;
  }
  if (byName_.Find(section) == nullptr) {
    std::string header = "[";
    AddSection(header.append(section).append("]").append(lineEnd_), {1, section.size()});
  }
  std::string text(key);
  text.append("=").append(value).append(lineEnd_);
  AddEntry(**byName_.Find(section),
           {std::move(text), {0, key.size()}, {key.size() + 1, value.size()}, {}, false, 0});
  return true;
}

bool ProfileFile::Remove(std::string_view section, std::string_view key) {
  const auto* const place = byName_.Find(section);
  const auto* const found = place == nullptr ? nullptr : (*place)->entries.Find(key);
  if (found == nullptr) {
    return false;
  }
  const auto line = *found;
  (*place)->entries.Remove(key);
  for (const auto repetition : line->repetitions) {
    (*place)->lines.erase(repetition);
  }
  (*place)->lines.erase(line);
  changed_ = true;
  return true;
}

}  // namespace netro
