#include "platform/InputFile.h"

#include <algorithm>
#include <utility>

#include "platform/windows/System.h"

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
  Handle file;
  OpenWay way;
  way.followsLinks = true;
  if (const int error = OpenFile(path_, way, file)) return FileErrorNumber(error);
  file_ = ToNumber(file.Release());
  return 0;
}

std::int32_t InputFile::Look(std::intptr_t file, Facts& facts) {
  FileFacts found;
  if (const int error = ReadFacts(ToHandle(file), found)) return FileErrorNumber(error);
  if (const int error = ErrorOfKind(found)) return FileErrorNumber(error);
  constexpr std::uint64_t kSecond = 10'000'000;
  facts = {found.device, found.number, found.size,
           static_cast<std::int64_t>(found.changed / kSecond),
           static_cast<std::int64_t>(found.changed % kSecond) * 100};
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
  if (file_ == kNone) {
    if (const std::int32_t error = Open()) return error;
    if (const std::int32_t error = CheckUnchanged()) return error;
  }
  constexpr std::uint64_t kMost = 1 << 30;  // of one call of the system
  const auto wanted =
      static_cast<DWORD>(std::min({std::uint64_t{room.size()}, facts_.size - read_, kMost}));
  if (wanted == 0) return 0;
  DWORD count = 0;
  if (ReadFile(ToHandle(file_), room.data(), wanted, &count, nullptr) == 0) {
    return FileErrorNumber(LastFileError());
  }
  if (count == 0) return StaleFileNumber();
  got = count;
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
  if (file_ != kNone) CloseHandle(ToHandle(std::exchange(file_, kNone)));
}

}  // namespace netro
