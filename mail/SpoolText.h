// The text of a spooled message, read from its file piece by piece. The file is open only while it
// is read, and may grow behind the text meanwhile. Thread: one at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "platform/ByteSource.h"
#include "platform/JournalFile.h"

namespace netro {

class SpoolText final : public ByteSource {
 public:
  SpoolText(std::string path, std::uint64_t begin, std::uint64_t size)
      : path_(std::move(path)), begin_(begin), size_(size) {}

  std::optional<std::uint64_t> Length() const override { return size_; }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return errorText_; }

 private:
  std::int32_t Fail(std::int32_t error);

  const std::string path_;
  const std::uint64_t begin_;
  const std::uint64_t size_;
  std::uint64_t read_ = 0;
  JournalFile file_;
  bool open_ = false;
  std::string errorText_;
};

}  // namespace netro
