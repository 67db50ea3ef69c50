#include "platform/AppendFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/windows/System.h"

namespace netro {
namespace {

int WriteAll(HANDLE file, std::string_view text, std::size_t& written) {
  constexpr std::size_t kMost = 1 << 30;  // of one call of the system
  written = 0;
  while (written < text.size()) {
    DWORD now = 0;
    const auto count = static_cast<DWORD>(std::min(text.size() - written, kMost));
    if (WriteFile(file, text.data() + written, count, &now, nullptr) == 0) return LastFileError();
    if (now == 0) return EIO;
    written += now;
  }
  return 0;
}

int WriteHeader(HANDLE file, std::string_view header, const FileFacts& facts) {
  std::size_t written = 0;
  if (header.empty() || facts.size != 0 || facts.device_like) return 0;
  return WriteAll(file, header, written);
}

}  // namespace

bool AppendFile::FactsOf(const char* path, Identity& identity, std::uint64_t& size) {
  FileFacts facts;
  if (ReadFacts(path, facts) != 0) return false;
  identity = {facts.device, facts.number};
  size = facts.size;
  return true;
}

std::int32_t AppendFile::Open(const std::string& path, std::string_view header) {
  std::string name = path;
  const bool made = !FileExists(path);
  constexpr DWORD kAppend = FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
  Handle file;
  FileFacts facts;
  if (const int error = OpenFile(path, {kAppend, OPEN_ALWAYS}, file)) return error;
  int error = ReadFacts(file.Get(), facts);
  if (error == 0 && facts.folder) error = EISDIR;
  if (error == 0) error = WriteHeader(file.Get(), header, facts);
  if (error != 0) {
    file.Close();
    if (made) DeleteFileW(Widen(path).c_str());
    return error;
  }
  Close();
  handle_ = ToNumber(file.Release());
  isPipe_ = facts.device_like;
  path_ = std::move(name);
  file_ = {facts.device, facts.number};
  return 0;
}

void AppendFile::Close() {
  if (IsOpen()) CloseHandle(ToHandle(std::exchange(handle_, kNone)));
}

AppendFile::Standing AppendFile::Look() const {
  Standing standing;
  Identity named;
  if (isPipe_ || (FactsOf(path_.c_str(), named, standing.size) && named == file_)) {
    standing.named = true;
    return standing;
  }
  FileFacts facts;
  standing.removed = IsRemoved();
  if (ReadFacts(ToHandle(handle_), facts) == 0) standing.size = facts.size;
  return standing;
}

bool AppendFile::IsRemoved() const {
  FILE_STANDARD_INFO facts{};
  if (isPipe_ || GetFileInformationByHandleEx(ToHandle(handle_), FileStandardInfo, &facts,
                                              sizeof facts) == 0) {
    return false;
  }
  return facts.DeletePending != FALSE || facts.NumberOfLinks == 0;
}

std::int32_t AppendFile::Write(std::string_view text, std::size_t& written) const {
  return WriteAll(ToHandle(handle_), text, written);
}

bool AppendFile::EndsInLine() const {
  Handle file;
  FileFacts facts;
  if (isPipe_ || OpenFile(path_, {}, file) != 0 || ReadFacts(file.Get(), facts) != 0) return true;
  if (facts.size == 0 || Identity{facts.device, facts.number} != file_) return true;
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>((facts.size - 1) & 0xFFFFFFFF);
  place.OffsetHigh = static_cast<DWORD>((facts.size - 1) >> 32);
  char last = '\n';
  DWORD got = 0;
  return ReadFile(file.Get(), &last, 1, &got, &place) == 0 || got != 1 || last == '\n';
}

// The system begins by itself within a second; a call that only begins it there is none.
void AppendFile::StartWriteback() const {}

}  // namespace netro
