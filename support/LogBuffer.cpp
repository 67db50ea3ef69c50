#include "support/LogBuffer.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

}  // namespace

// A file that cannot be looked at counts as there: opening it will tell what is wrong.
bool LogBuffer::Exists(const std::string& fileName) {
  std::error_code error;
  const auto type = std::filesystem::status(fileName, error).type();
  return type != std::filesystem::file_type::not_found;
}

std::int32_t LogBuffer::Open(const std::string& fileName, std::string header) {
  const bool made = !Exists(fileName);
  File file(std::fopen(fileName.c_str(), "ab"));
  if (!file) return errno;
  // Each commit is one write to the system, so that nothing is left behind in this process.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  std::string line = made ? header : std::string();
  if (const std::int32_t error = Write(file, line); error != 0) {
    std::remove(fileName.c_str());
    return error;
  }
  fileName_ = fileName;
  header_ = std::move(header);
  file_ = std::move(file);
  return 0;
}

void LogBuffer::Append(std::string_view text) {
  const std::size_t before = text_.size();
  try {
    AppendOnOneLine(text);
    text_.append(kLineEnd);
  } catch (...) {
    text_.resize(before);
    throw;
  }
  ++lines_;
}

// Looks for each of the two on its own, which is much faster than for both at once.
void LogBuffer::AppendOnOneLine(std::string_view text) {
  std::size_t cr = text.find('\r');
  std::size_t lf = text.find('\n');
  std::size_t begin = 0;
  while (cr != text.npos || lf != text.npos) {
    const std::size_t at = std::min(cr, lf);
    text_.append(text.substr(begin, at - begin)).append(at == cr ? "\\r" : "\\n");
    begin = at + 1;
    (at == cr ? cr : lf) = text.find(text[at], begin);
  }
  text_.append(text.substr(begin));
}

std::int32_t LogBuffer::Commit() {
  if (!Exists(fileName_)) {
    const std::int32_t error = Open(std::string(fileName_), std::string(header_));
    if (error != 0) return error;
  }
  const std::int32_t error = Write(file_, text_);
  if (error == 0) lines_ = 0;
  return error;
}

// Takes away what was written, so that a line that was cut is continued by the next write.
std::int32_t LogBuffer::Write(const File& file, std::string& text) {
  std::size_t written = 0;
  std::int32_t error = 0;
  while (written < text.size() && error == 0) {
    std::clearerr(file.get());
    errno = 0;
    const std::size_t now =
        std::fwrite(text.data() + written, 1, text.size() - written, file.get());
    written += now;
    if (now == 0 && errno != EINTR) error = errno != 0 ? errno : EIO;
  }
  text.erase(0, written);
  return error;
}

}  // namespace netro
