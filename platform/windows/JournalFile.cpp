// A claim is a lock of one byte that lies behind all that a file can hold: locks of this system
// keep others from reading what they cover.
#include "platform/JournalFile.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

constexpr std::size_t kMostAtOnce = 1 << 30;  // of one call of the system

OVERLAPPED At(std::uint64_t offset) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset & 0xFFFFFFFF);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

int ReadAll(HANDLE file, std::uint64_t offset, std::string& text) {
  std::size_t used = 0;
  while (used < text.size()) {
    OVERLAPPED place = At(offset + used);
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(text.size() - used, kMostAtOnce));
    if (ReadFile(file, text.data() + used, wanted, &count, &place) == 0 &&
        GetLastError() != ERROR_HANDLE_EOF) {
      return LastFileError();
    }
    if (count == 0) break;
    used += count;
  }
  text.resize(used);
  return 0;
}

int WriteAll(HANDLE file, std::string_view text) {
  while (!text.empty()) {
    OVERLAPPED end = At(~std::uint64_t{0});  // this place means the end
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(text.size(), kMostAtOnce));
    if (WriteFile(file, text.data(), wanted, &count, &end) == 0) return LastFileError();
    text.remove_prefix(count);
  }
  return FlushFileBuffers(file) != 0 ? 0 : LastFileError();
}

int Lock(HANDLE file) {
  OVERLAPPED place = At(std::uint64_t{1} << 62);
  constexpr DWORD kFlags = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
  return LockFileEx(file, kFlags, 0, 1, 0, &place) != 0 ? 0 : LastFileError();
}

}  // namespace

std::int32_t JournalFile::OpenFor(Use use, const std::string& path) {
  Close();
  OpenWay way;
  if (use == Use::Append) way.access |= GENERIC_WRITE;
  Handle file;
  FileFacts facts;
  int error = OpenFile(path, way, file);
  if (error == 0) error = ReadFacts(file.Get(), facts);
  if (error == 0) error = ErrorOfKind(facts);
  if (error != 0) return FileErrorNumber(error);
  size_ = facts.size;
  file_ = ToNumber(file.Release());
  return 0;
}

std::int32_t JournalFile::Open(const std::string& path) { return OpenFor(Use::Read, path); }

std::int32_t JournalFile::Claim(const std::string& path) {
  if (const std::int32_t error = OpenFor(Use::Append, path)) return error;
  const int locked = Lock(ToHandle(file_));
  const std::int32_t error = locked != 0 ? FileErrorNumber(locked) : LookAgain(path);
  if (error != 0) Close();
  return error;
}

// Who had the claim before may have removed the file, or appended to it, since it was opened.
std::int32_t JournalFile::LookAgain(const std::string& path) {
  FileFacts ours;
  FileFacts named;
  int error = ReadFacts(ToHandle(file_), ours);
  if (error == 0) error = ReadFacts(path, named);
  if (error == 0 && (ours.number != named.number || ours.device != named.device)) error = ENOENT;
  if (error != 0) return FileErrorNumber(error);
  size_ = ours.size;
  return 0;
}

void JournalFile::Close() {
  if (file_ != kNone) CloseHandle(ToHandle(std::exchange(file_, kNone)));
}

std::int32_t JournalFile::ReadAt(std::uint64_t offset, std::size_t count, std::string& text) const {
  text.clear();
  const std::uint64_t left = offset < size_ ? size_ - offset : 0;
  int error = ENOMEM;
  try {
    text.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, left)));
    error = ReadAll(ToHandle(file_), offset, text);
  } catch (const std::bad_alloc&) {
  }
  if (error == 0) return 0;
  text.clear();
  return FileErrorNumber(error);
}

bool JournalFile::IsTaken(std::int32_t error) { return error == FileErrorNumber(EWOULDBLOCK); }

bool JournalFile::IsMissing(std::int32_t error) { return error == FileErrorNumber(ENOENT); }

std::int32_t JournalFile::Append(std::string_view text) {
  const int error = WriteAll(ToHandle(file_), text);
  if (error == 0) {
    size_ += text.size();
    return 0;
  }
  CutTo(size_);
  return FileErrorNumber(error);
}

std::int32_t JournalFile::Reserve(std::size_t count) const {
  FILE_ALLOCATION_INFO room{};
  room.AllocationSize.QuadPart = static_cast<LONGLONG>(size_ + count);
  if (SetFileInformationByHandle(ToHandle(file_), FileAllocationInfo, &room, sizeof room) != 0) {
    return 0;
  }
  // Others cannot do it, and then nothing is known.
  return LastFileError() == ENOSPC ? FileErrorNumber(ENOSPC) : 0;
}

std::int32_t JournalFile::CutTo(std::uint64_t size) {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  if (SetFileInformationByHandle(ToHandle(file_), FileEndOfFileInfo, &end, sizeof end) == 0) {
    return FileErrorNumber(LastFileError());
  }
  size_ = size;
  return 0;
}

}  // namespace netro
