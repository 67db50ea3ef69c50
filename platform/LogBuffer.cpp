#include "platform/LogBuffer.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "support/StrangeText.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
/// A file that is removed each time that it is written to is not made for ever.
constexpr int kMostTries = 10;

}  // namespace

std::int32_t LogBuffer::Open(const std::string& path, std::string header) {
  std::string name = path;
  if (const std::int32_t error = file_.Open(path, header)) return error;
  path_ = std::move(name);
  header_ = std::move(header);
  return 0;
}

void LogBuffer::Append(std::string_view text) {
  const std::size_t before = text_.size();
  try {
    AppendLogText(text_, text);
    text_.append(kLineEnd);
  } catch (...) {
    text_.resize(before);
    throw;
  }
  ++lines_;
}

// A log is read on terminals, which obey controls. Bytes that are no UTF-8 may be of the program's
// own code page, and stay, but for those that are controls to some terminals.
void AppendLogText(std::string& out, std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = EndOfPrintable(text, at);
    out.append(text, at, end - at);
    at = end;
    if (at == text.size()) break;
    const std::size_t strange = StrangeLength(text, at);
    const char c = text[at];
    const bool isOtherLetter = strange == 1 && static_cast<unsigned char>(c) >= 0xA0;
    if (c == '\r' || c == '\n') {
      out.append(c == '\r' ? "\\r" : "\\n");
    } else if (strange == 0 || c == '\t' || isOtherLetter) {
      out.append(text, at, std::max(Utf8Length(text, at), std::size_t{1}));
    } else {
      AppendEscaped(out, text.substr(at, strange));
    }
    at += strange != 0 ? strange : Utf8Length(text, at);
  }
}

// The file may be renamed or removed between the look and the write. A renamed one has the lines;
// from one without any name they would be lost, so they are written again.
std::int32_t LogBuffer::Commit() {
  for (int tries = 0; tries < kMostTries; ++tries) {
    AppendFile::Standing standing;
    std::int32_t error = Follow(standing);
    if (error == 0) error = WriteLines(standing.size);
    if (error != 0) return error;
    if (text_.empty() || !file_.IsRemoved()) {
      text_.clear();
      lines_ = 0;
      return 0;
    }
    cut_ = 0;
  }
  return ENOENT;
}

std::int32_t LogBuffer::GiveUp() {
  std::int32_t error = Open(std::string(path_), std::string(header_));
  if (error == 0) error = Commit();
  Close();
  text_.clear();
  lines_ = cut_ = 0;
  failed_ = false;
  return error;
}

// Goes on with the file that is open when that has a name yet and the new one cannot be opened, say
// because the program has given up its rights: so nothing is lost.
std::int32_t LogBuffer::Follow(AppendFile::Standing& standing) {
  standing = file_.Look();
  if (!standing.named) {
    const std::int32_t error = Open(std::string(path_), std::string(header_));
    if (error != 0) return standing.removed ? error : 0;
    standing = file_.Look();
  }
  if (standing.named && standing.removed) return ENOENT;
  return standing.size == 0 ? WriteHeader() : 0;
}

// Of a file that was emptied.
std::int32_t LogBuffer::WriteHeader() {
  std::size_t written = 0;
  return file_.Write(header_, written);
}

// A line of which only a part could be written is continued, but only where that part stands. After
// a failure, as of a full disk, such a part may be another program's.
std::int32_t LogBuffer::WriteLines(std::uint64_t size) {
  const std::size_t begin = file_.File() == cutFile_ && size == cutSize_ ? cut_ : 0;
  if (std::exchange(failed_, false) && begin == 0 && size > 0 && !file_.EndsInLine()) {
    text_.insert(0, kLineEnd);
  }
  std::size_t written = 0;
  const std::int32_t error = file_.Write(std::string_view(text_).substr(begin), written);
  failed_ = error != 0;
  if (error != 0 && begin + written > 0) KeepFrom(begin + written);
  return error;
}

void LogBuffer::KeepFrom(std::size_t written) {
  const std::size_t end = written < 2 ? std::string::npos : text_.rfind(kLineEnd, written - 2);
  const std::size_t whole = end == text_.npos ? 0 : end + kLineEnd.size();
  text_.erase(0, whole);
  cut_ = written - whole;
  cutFile_ = file_.File();
  cutSize_ = file_.Look().size;
}

}  // namespace netro
