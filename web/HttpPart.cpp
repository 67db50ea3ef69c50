#include "web/HttpPart.h"

#include <algorithm>
#include <vector>

#include "platform/InputFile.h"
#include "platform/OutputFile.h"
#include "platform/WholeFile.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kLongestNote = 64 * 1024;
constexpr std::size_t kNoteLines = 4;  // URL, entity tag, date of change, date

std::string InfoOf(const std::string& file) { return file + ".part.info"; }

}  // namespace

PartialBody HttpPart::Find(const std::string& file, const std::string& url) {
  std::string note;
  if (ReadWholeFile(InfoOf(file), note, kLongestNote) != 0) return {};
  const std::vector<std::string> lines = Split(note, '\n');
  PartialBody part;
  InputFile bytes;
  if (lines.size() != kNoteLines || lines[0] != url || bytes.Examine(PathOf(file)) != 0) return {};
  part.entityTag = lines[1];
  part.lastModified = lines[2];
  part.date = lines[3];
  part.have = bytes.Size();
  const auto isBad = [](const std::string& line) { return HasControl(line); };
  return std::ranges::any_of(lines, isBad) ? PartialBody() : part;
}

std::string HttpPart::NoteOf(const std::string& url, const PartialBody& part) {
  PartialBody some = part;
  some.have = 1;
  const std::string text = url + part.entityTag + part.lastModified + part.date;
  if (ResumeFields(some).empty() || HasControl(text)) return {};
  return url + '\n' + part.entityTag + '\n' + part.lastModified + '\n' + part.date;
}

std::int32_t HttpPart::Note(const std::string& file, const std::string& note) {
  if (note.empty()) return RemoveFile(InfoOf(file));
  return ReplaceFile(InfoOf(file), note);
}

void HttpPart::Forget(const std::string& file) {
  RemoveFile(PathOf(file));
  RemoveFile(InfoOf(file));
}

}  // namespace netro
