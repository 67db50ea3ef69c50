#include "platform/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {

std::int32_t InputFile::Examine(const std::string& path) {
  Rewind();
  path_ = path;
  if (const std::int32_t error = Open()) return error;
  const std::int32_t error = Look(file_, facts_);
  Rewind();
  return error;
}

std::int32_t InputFile::Open() {
  // The system would take a path with NUL for a shorter one.
  if (path_.find('\0') != std::string::npos) return FileErrorNumber(EINVAL);
  // Non-blocking, since opening a pipe would wait for its writer.
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  file_ = AwayFromZero(open(path_.c_str(), kFlags));
  return file_ < 0 ? FileErrorNumber(errno) : 0;
}

std::int32_t InputFile::Look(std::intptr_t file, Facts& facts) {
  struct stat found {};
  if (fstat(Descriptor(file), &found) != 0) return FileErrorNumber(errno);
  if (S_ISDIR(found.st_mode)) return FileErrorNumber(EISDIR);
  if (!S_ISREG(found.st_mode)) return FileErrorNumber(EINVAL);
  facts = {static_cast<std::uint64_t>(found.st_dev), static_cast<std::uint64_t>(found.st_ino),
           static_cast<std::uint64_t>(found.st_size), found.st_mtim.tv_sec, found.st_mtim.tv_nsec};
  return 0;
}

std::int32_t InputFile::CheckUnchanged() const {
  Facts now;
  if (const std::int32_t error = Look(file_, now)) return error;
  return now == facts_ ? 0 : StaleFileNumber();
}

std::int32_t InputFile::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = 0;
  if (ended_ || error_ != 0) return error_;
  error_ = ReadSome(room, got);
  if (error_ != 0) got = 0;
  ended_ = got == 0;
  if (ended_) Close();
  return error_;
}

std::int32_t InputFile::ReadSome(std::span<std::uint8_t> room, std::size_t& got) {
  if (file_ < 0) {
    if (const std::int32_t error = Open()) return error;
    if (const std::int32_t error = CheckUnchanged()) return error;
  }
  const auto wanted =
      static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), facts_.size - read_));
  if (wanted == 0) return 0;
  ssize_t count = -1;
  do {
    count = read(Descriptor(file_), room.data(), wanted);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return FileErrorNumber(errno);
  if (count == 0) return StaleFileNumber();
  got = static_cast<std::size_t>(count);
  read_ += got;
  return read_ == facts_.size ? CheckUnchanged() : 0;
}

void InputFile::Rewind() {
  Close();
  read_ = 0;
  ended_ = false;
  error_ = 0;
}

void InputFile::Close() {
  if (file_ >= 0) close(Descriptor(std::exchange(file_, kNone)));
}

}  // namespace netro
