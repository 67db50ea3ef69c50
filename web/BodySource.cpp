#include "web/BodySource.h"

#include <algorithm>

#include "platform/ErrorNumbers.h"

namespace netro {
std::int32_t MemoryBody::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = std::min(room.size(), bytes_.size() - position_);
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(position_), got, room.begin());
  position_ += got;
  return 0;
}

bool MemoryBody::Rewind() {
  position_ = 0;
  return true;
}

std::int32_t FileBody::Open(const std::string& path) { return Note(file_.Examine(path)); }

std::int32_t FileBody::Read(std::span<std::uint8_t> room, std::size_t& got) {
  return Note(file_.Read(room, got));
}

bool FileBody::Rewind() {
  file_.Rewind();
  return true;
}

std::int32_t FileBody::Note(std::int32_t error) {
  const char* const what =
      InputFile::HasChanged(error) ? " changed while it was being sent." : " cannot be read.";
  errorText_ = error == 0 ? "" : "The file " + file_.Path() + what;
  return error;
}

std::int32_t FunctionBody::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = 0;
  asked_ = true;
  if (length_) {
    const std::uint64_t left = *length_ - given_;
    room = room.first(static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), left)));
    if (room.empty()) return 0;
  }
  if (const std::int32_t error = read_(room, got)) return error;
  if (got > room.size())
    return Fail("The function that gives the body gave more than was asked for.");
  given_ += got;
  if (got == 0 && length_) {
    return Fail("The function that gives the body ended after " + std::to_string(given_) +
                " bytes of " + std::to_string(*length_) + ".");
  }
  return 0;
}

bool FunctionBody::Rewind() {
  if (!asked_) return true;
  if (!rewind_ || !rewind_()) return false;
  given_ = 0;
  asked_ = false;
  return true;
}

std::int32_t FunctionBody::Fail(std::string text) {
  errorText_ = std::move(text);
  return kErrInvalidArgument;
}

}  // namespace netro
