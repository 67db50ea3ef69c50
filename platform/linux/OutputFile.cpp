#include "platform/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

// Whole pages for the system, whatever size the blocks from the network have.
constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

std::int32_t OutputFile::Create(const std::string& path) {
  Discard();
  path_ = path;
  size_ = 0;
  if (const std::int32_t error = RemoveFile(path)) return error;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  descriptor_ = AwayFromZero(open(path.c_str(), kFlags, 0600));
  return descriptor_ < 0 ? FileErrorNumber(errno) : 0;
}

std::int32_t OutputFile::Continue(const std::string& path, std::uint64_t size) {
  Discard();
  path_ = path;
  size_ = size;
  constexpr int kFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  descriptor_ = AwayFromZero(open(path.c_str(), kFlags));
  struct stat found {};
  int error = descriptor_ < 0 || fstat(descriptor_, &found) != 0 ? errno : 0;
  if (error == 0 && !S_ISREG(found.st_mode)) error = EEXIST;
  if (error == 0 && static_cast<std::uint64_t>(found.st_size) != size) error = EBUSY;
  if (error == 0) return 0;
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
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
  descriptor_ = AwayFromZero(mkostemps(path_.data(), length, O_CLOEXEC));
  return descriptor_ < 0 ? FileErrorNumber(errno) : 0;
}

std::int32_t OutputFile::Write(std::span<const std::uint8_t> bytes) {
  waiting_.reserve(kBufferSize);
  size_ += bytes.size();
  while (!bytes.empty()) {
    if (waiting_.empty() && bytes.size() >= kBufferSize) return WriteNow(bytes);
    const auto taken = bytes.first(std::min(bytes.size(), kBufferSize - waiting_.size()));
    waiting_.insert(waiting_.end(), taken.begin(), taken.end());
    bytes = bytes.subspan(taken.size());
    if (waiting_.size() < kBufferSize) return 0;
    if (const std::int32_t error = Flush()) return error;
  }
  return 0;
}

std::int32_t OutputFile::Flush() {
  const std::int32_t error = WriteNow(waiting_);
  if (error == 0) waiting_.clear();
  return error;
}

std::int32_t OutputFile::WriteNow(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return FileErrorNumber(errno);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return 0;
}

std::int32_t OutputFile::Finish() {
  if (!IsOpen()) return 0;
  std::int32_t error = Flush();
  if (close(std::exchange(descriptor_, -1)) != 0 && error == 0) error = FileErrorNumber(errno);
  if (error != 0) RemoveFile(path_);
  waiting_.clear();
  return error;
}

bool OutputFile::IsStillOurs() const {
  struct stat ours {};
  struct stat named {};
  return fstat(descriptor_, &ours) == 0 && lstat(path_.c_str(), &named) == 0 &&
         ours.st_ino == named.st_ino && ours.st_dev == named.st_dev &&
         static_cast<std::uint64_t>(ours.st_size) == size_;
}

std::int32_t OutputFile::FinishAs(const std::string& path) {
  if (!IsOpen()) return FileErrorNumber(EBADF);
  std::int32_t error = CanReplace(path);
  if (error == 0) error = Flush();
  if (error == 0 && !IsStillOurs()) error = FileErrorNumber(EBUSY);
  if (error == 0 && fsync(descriptor_) != 0) error = FileErrorNumber(errno);
  if (error != 0) {
    Discard();
    return error;
  }
  error = Finish();
  if (error == 0 && std::rename(path_.c_str(), path.c_str()) != 0) {
    error = FileErrorNumber(errno);
    RemoveFile(path_);
  }
  return error;
}

void OutputFile::Discard() {
  waiting_.clear();
  if (!IsOpen()) return;
  close(std::exchange(descriptor_, -1));
  RemoveFile(path_);
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
