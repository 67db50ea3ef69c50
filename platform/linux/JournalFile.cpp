#include "platform/JournalFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

int ReadAll(int descriptor, std::uint64_t offset, std::string& text) {
  std::size_t used = 0;
  while (used < text.size()) {
    const ssize_t count = pread(descriptor, text.data() + used, text.size() - used,
                                static_cast<off_t>(offset + used));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  text.resize(used);
  return 0;
}

int WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return fdatasync(descriptor) == 0 ? 0 : errno;
}

}  // namespace

std::int32_t JournalFile::OpenFor(Use use, const std::string& path) {
  Close();
  if (path.find('\0') != path.npos) return FileErrorNumber(EINVAL);
  // Non-blocking, since opening a pipe would wait for its writer.
  constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int flags = use == Use::Append ? O_RDWR | O_APPEND : O_RDONLY;
  file_ = AwayFromZero(open(path.c_str(), flags | kFlags));
  if (file_ < 0) return FileErrorNumber(errno);
  struct stat facts {};
  int error = fstat(Descriptor(file_), &facts) != 0 ? errno : 0;
  if (error == 0 && !S_ISREG(facts.st_mode)) error = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
  size_ = static_cast<std::uint64_t>(facts.st_size);
  if (error == 0) return 0;
  Close();
  return FileErrorNumber(error);
}

std::int32_t JournalFile::Open(const std::string& path) { return OpenFor(Use::Read, path); }

std::int32_t JournalFile::Claim(const std::string& path) {
  if (const std::int32_t error = OpenFor(Use::Append, path)) return error;
  // The system lets go of the lock when the program ends.
  std::int32_t error =
      flock(Descriptor(file_), LOCK_EX | LOCK_NB) != 0 ? FileErrorNumber(errno) : LookAgain(path);
  if (error != 0) Close();
  return error;
}

// Who had the claim before may have removed the file, or appended to it, since it was opened.
std::int32_t JournalFile::LookAgain(const std::string& path) {
  struct stat ours {};
  struct stat named {};
  if (fstat(Descriptor(file_), &ours) != 0 || lstat(path.c_str(), &named) != 0)
    return FileErrorNumber(errno);
  if (ours.st_ino != named.st_ino || ours.st_dev != named.st_dev) return FileErrorNumber(ENOENT);
  size_ = static_cast<std::uint64_t>(ours.st_size);
  return 0;
}

void JournalFile::Close() {
  if (file_ >= 0) close(Descriptor(std::exchange(file_, kNone)));
}

std::int32_t JournalFile::ReadAt(std::uint64_t offset, std::size_t count, std::string& text) const {
  text.clear();
  const std::uint64_t left = offset < size_ ? size_ - offset : 0;
  int error = ENOMEM;
  try {
    text.resize(static_cast<std::size_t>(std::min<std::uint64_t>(count, left)));
    error = ReadAll(Descriptor(file_), offset, text);
  } catch (const std::bad_alloc&) {
  }
  if (error == 0) return 0;
  text.clear();
  return FileErrorNumber(error);
}

bool JournalFile::IsTaken(std::int32_t error) { return error == FileErrorNumber(EWOULDBLOCK); }

bool JournalFile::IsMissing(std::int32_t error) { return error == FileErrorNumber(ENOENT); }

std::int32_t JournalFile::Append(std::string_view text) {
  const int error = WriteAll(Descriptor(file_), text);
  if (error == 0) {
    size_ += text.size();
    return 0;
  }
  CutTo(size_);
  return FileErrorNumber(error);
}

std::int32_t JournalFile::Reserve(std::size_t count) const {
  if (fallocate(Descriptor(file_), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(size_),
                static_cast<off_t>(count)) == 0) {
    return 0;
  }
  // Others cannot do it, and then nothing is known.
  return errno == ENOSPC || errno == EDQUOT ? FileErrorNumber(errno) : 0;
}

std::int32_t JournalFile::CutTo(std::uint64_t size) {
  if (ftruncate(Descriptor(file_), static_cast<off_t>(size)) != 0) return FileErrorNumber(errno);
  size_ = size;
  return 0;
}

}  // namespace netro
