// What is the same on every system: the buffer, and the order of the steps that keep a file whole.
#include "platform/OutputFile.h"

#include <algorithm>
#include <cerrno>

#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"

namespace netro {
namespace {

// Whole pages for the system, whatever size the blocks from the network have.
constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

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

std::int32_t OutputFile::Finish() {
  if (!IsOpen()) return 0;
  std::int32_t error = Flush();
  const std::int32_t closing = CloseNow();
  if (error == 0) error = closing;
  if (error != 0) RemoveFile(path_);
  waiting_.clear();
  return error;
}

std::int32_t OutputFile::FinishAs(const std::string& path) {
  if (!IsOpen()) return FileErrorNumber(EBADF);
  std::int32_t error = CanReplace(path);
  if (error == 0) error = Flush();
  if (error == 0 && !IsStillOurs()) error = FileErrorNumber(EBUSY);
  if (error == 0) error = Sync();
  if (error != 0) {
    Discard();
    return error;
  }
  error = Finish();
  if (error != 0) return error;
  error = RenameFile(path_, path);
  if (error != 0) RemoveFile(path_);
  return error;
}

void OutputFile::Discard() {
  waiting_.clear();
  if (!IsOpen()) return;
  CloseNow();
  RemoveFile(path_);
}

}  // namespace netro
