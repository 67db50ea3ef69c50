#include "platform/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {

std::int32_t OutputFile::Create(const std::string& path) {
  Discard();
  path_ = path;
  size_ = 0;
  if (const std::int32_t error = RemoveFile(path)) return error;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file_ = AwayFromZero(open(path.c_str(), kFlags, 0600));
  return file_ < 0 ? FileErrorNumber(errno) : 0;
}

std::int32_t OutputFile::Continue(const std::string& path, std::uint64_t size) {
  Discard();
  path_ = path;
  size_ = size;
  constexpr int kFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  file_ = AwayFromZero(open(path.c_str(), kFlags));
  struct stat found {};
  int error = file_ < 0 || fstat(Descriptor(file_), &found) != 0 ? errno : 0;
  if (error == 0 && !S_ISREG(found.st_mode)) error = EEXIST;
  if (error == 0 && static_cast<std::uint64_t>(found.st_size) != size) error = EBUSY;
  if (error == 0) return 0;
  if (file_ >= 0) CloseNow();
  return FileErrorNumber(error);
}

std::int32_t OutputFile::CreateTemporary(const std::string& prefix, const std::string& extension) {
  const char* folder = std::getenv("TMPDIR");
  return CreateUnique(folder != nullptr && *folder != '\0' ? folder : "/tmp", prefix, extension);
}

std::int32_t OutputFile::CreateUnique(const std::string& folder, const std::string& prefix,
                                      const std::string& extension) {
  Discard();
  size_ = 0;
  const std::string ending = "." + extension;
  path_ = folder + "/" + prefix + "XXXXXX" + ending;
  const int length = static_cast<int>(ending.size());
  file_ = AwayFromZero(mkostemps(path_.data(), length, O_CLOEXEC));
  return file_ < 0 ? FileErrorNumber(errno) : 0;
}

std::int32_t OutputFile::WriteNow(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(Descriptor(file_), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return FileErrorNumber(errno);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return 0;
}

bool OutputFile::IsStillOurs() const {
  struct stat ours {};
  struct stat named {};
  return fstat(Descriptor(file_), &ours) == 0 && lstat(path_.c_str(), &named) == 0 &&
         ours.st_ino == named.st_ino && ours.st_dev == named.st_dev &&
         static_cast<std::uint64_t>(ours.st_size) == size_;
}

std::int32_t OutputFile::Sync() {
  return fsync(Descriptor(file_)) == 0 ? 0 : FileErrorNumber(errno);
}

std::int32_t OutputFile::CloseNow() {
  return close(Descriptor(std::exchange(file_, kNone))) == 0 ? 0 : FileErrorNumber(errno);
}

std::int32_t CanReplace(const std::string& path) {
  struct stat found {};
  const bool exists = lstat(path.c_str(), &found) == 0;
  if (exists && S_ISDIR(found.st_mode)) return FileErrorNumber(EISDIR);
  if (exists && !S_ISREG(found.st_mode) && !S_ISLNK(found.st_mode)) return FileErrorNumber(EEXIST);
  return 0;
}

std::int32_t RemoveFile(const std::string& path) {
  if (const std::int32_t error = CanReplace(path)) return error;
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return 0;
  return FileErrorNumber(errno);
}

}  // namespace netro
