#include "platform/ByteSource.h"

#include <algorithm>
#include <cstring>

#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t MemorySource::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = std::min(room.size(), bytes_.size() - position_);
  if (got > 0) std::memcpy(room.data(), bytes_.data() + position_, got);
  position_ += got;
  return 0;
}

bool MemorySource::Rewind() {
  position_ = 0;
  return true;
}

std::int32_t FileSource::Open(const std::string& path) { return Note(file_.Examine(path)); }

std::int32_t FileSource::Read(std::span<std::uint8_t> room, std::size_t& got) {
  return Note(file_.Read(room, got));
}

bool FileSource::Rewind() {
  file_.Rewind();
  return true;
}

std::int32_t FileSource::Note(std::int32_t error) {
  const char* const what =
      InputFile::HasChanged(error) ? " changed while it was being sent." : " cannot be read.";
  errorText_ = error == 0 ? "" : "The file " + file_.Path() + what;
  return error;
}

std::int32_t FunctionSource::Read(std::span<std::uint8_t> room, std::size_t& got) {
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

bool FunctionSource::Rewind() {
  if (!asked_) return true;
  if (!rewind_ || !rewind_()) return false;
  given_ = 0;
  asked_ = false;
  return true;
}

std::int32_t FunctionSource::Fail(std::string text) {
  errorText_ = std::move(text);
  return kErrInvalidArgument;
}

std::optional<std::uint64_t> JoinedSource::Length() const {
  std::uint64_t length = 0;
  for (const auto& source : sources_) {
    const std::optional<std::uint64_t> part = source->Length();
    if (!part) return std::nullopt;
    length += *part;
  }
  return length;
}

std::int32_t JoinedSource::Read(std::span<std::uint8_t> room, std::size_t& got) {
  for (got = 0; present_ < sources_.size(); ++present_) {
    const std::int32_t error = sources_[present_]->Read(room, got);
    if (error != 0 || got > 0) return error;
  }
  return 0;
}

bool JoinedSource::Rewind() {
  present_ = 0;
  bool all = true;
  for (const auto& source : sources_) all = source->Rewind() && all;
  return all;
}

std::string JoinedSource::ErrorText() const {
  return present_ < sources_.size() ? sources_[present_]->ErrorText() : std::string();
}

std::int32_t CopyAll(ByteSource& source,
                     const std::function<std::int32_t(std::span<const std::uint8_t>)>& take) {
  // Of Base64 it holds 1024 lines, which a file takes at once.
  constexpr std::size_t kBlock = 81920;
  std::vector<std::uint8_t> block(kBlock);
  while (true) {
    std::size_t got = 0;
    if (const std::int32_t error = source.Read(block, got)) return error;
    if (got == 0) return 0;
    if (const std::int32_t error = take(std::span(block).first(got))) return error;
  }
}

}  // namespace netro
