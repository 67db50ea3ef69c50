// Who may read a new file is what its folder says: this system's folders of users and of temporary
// files are for their user alone.
#include "platform/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

constexpr int kTries = 100;

int CreateNew(const std::string& path, std::intptr_t& made) {
  Handle file;
  const int error = OpenFile(path, {GENERIC_WRITE | FILE_READ_ATTRIBUTES, CREATE_NEW}, file);
  if (error == 0) made = ToNumber(file.Release());
  return error;
}

std::string RandomLetters() {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz234567";
  std::string letters;
  std::uint32_t number = RandomNumber();
  for (int i = 0; i < 6; ++i, number >>= 5) letters += kLetters[number & 31];
  return letters;
}

std::string TemporaryFolder() {
  wchar_t folder[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
  return Narrow({folder, length <= MAX_PATH ? length : 0});
}

}  // namespace

std::int32_t OutputFile::Create(const std::string& path) {
  Discard();
  path_ = path;
  size_ = 0;
  if (const std::int32_t error = RemoveFile(path)) return error;
  const int error = CreateNew(path, file_);
  return error == 0 ? 0 : FileErrorNumber(error);
}

std::int32_t OutputFile::Continue(const std::string& path, std::uint64_t size) {
  Discard();
  path_ = path;
  size_ = size;
  Handle file;
  FileFacts found;
  int error = OpenFile(path, {FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE}, file);
  if (error == 0) error = ReadFacts(file.Get(), found);
  if (error == 0 && ErrorOfKind(found) != 0) error = EEXIST;
  if (error == 0 && found.size != size) error = EBUSY;
  if (error != 0) return FileErrorNumber(error);
  file_ = ToNumber(file.Release());
  return 0;
}

std::int32_t OutputFile::CreateTemporary(const std::string& prefix, const std::string& extension) {
  return CreateUnique(TemporaryFolder(), prefix, extension);
}

std::int32_t OutputFile::CreateUnique(const std::string& folder, const std::string& prefix,
                                      const std::string& extension) {
  Discard();
  size_ = 0;
  int error = EEXIST;
  for (int tries = 0; tries < kTries && error == EEXIST; ++tries) {
    const bool ends = folder.ends_with('/') || folder.ends_with('\\');
    path_ = folder + (ends ? "" : "/") + prefix + RandomLetters() + "." + extension;
    error = CreateNew(path_, file_);
  }
  return error == 0 ? 0 : FileErrorNumber(error);
}

std::int32_t OutputFile::WriteNow(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kMost = 1 << 30;  // of one call of the system
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto count = static_cast<DWORD>(std::min(bytes.size(), kMost));
    if (WriteFile(ToHandle(file_), bytes.data(), count, &written, nullptr) == 0) {
      return FileErrorNumber(LastFileError());
    }
    bytes = bytes.subspan(written);
  }
  return 0;
}

bool OutputFile::IsStillOurs() const {
  FileFacts ours;
  FileFacts named;
  return ReadFacts(ToHandle(file_), ours) == 0 && ReadFacts(path_, named) == 0 &&
         ours.number == named.number && ours.device == named.device && ours.size == size_;
}

std::int32_t OutputFile::Sync() {
  return FlushFileBuffers(ToHandle(file_)) != 0 ? 0 : FileErrorNumber(LastFileError());
}

std::int32_t OutputFile::CloseNow() {
  const bool closed = CloseHandle(ToHandle(std::exchange(file_, kNone))) != 0;
  return closed ? 0 : FileErrorNumber(LastFileError());
}

std::int32_t CanReplace(const std::string& path) {
  FileFacts found;
  if (ReadFacts(path, found) != 0) return 0;
  if (found.folder && !found.link) return FileErrorNumber(EISDIR);
  return found.device_like ? FileErrorNumber(EEXIST) : 0;
}

std::int32_t RemoveFile(const std::string& path) {
  if (const std::int32_t error = CanReplace(path)) return error;
  if (DeleteFileW(Widen(path).c_str()) != 0) return 0;
  const int error = LastFileError();
  return error == ENOENT ? 0 : FileErrorNumber(error);
}

}  // namespace netro
