// Where the body of a request comes from: memory, a file, a function, or the parts of a form. A
// source is read piece by piece, so that only what is being sent stands in memory. Owned by the
// request; thread: one at a time. Nothing in here waits, but for what files and functions do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "platform/InputFile.h"

namespace netro {

class BodySource {
 public:
  virtual ~BodySource() = default;

  /// The bytes from the beginning to the end; nothing when only the end will tell, so that the body
  /// goes in chunks. A source that has a length gives exactly that many bytes or fails.
  virtual std::optional<std::uint64_t> Length() const = 0;

  /// Fills the front of `room`, which is not empty, and says with how much in `got`. Success with
  /// nothing got is the end. Returns 0 or an error number, see ErrorText; then the body must not be
  /// ended as if it were whole.
  virtual std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) = 0;

  /// Begins again, for a request that is repeated. False when that cannot be done.
  virtual bool Rewind() = 0;

  /// What was wrong; empty when the number says it.
  virtual std::string ErrorText() const { return {}; }
};

class MemoryBody final : public BodySource {
 public:
  explicit MemoryBody(std::string bytes) : bytes_(std::move(bytes)) {}

  std::optional<std::uint64_t> Length() const override { return bytes_.size(); }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;

 private:
  std::string bytes_;
  std::size_t position_ = 0;
};

/// A file, open only while it is being read. One that changes after Open ends with 20116.
class FileBody final : public BodySource {
 public:
  std::int32_t Open(const std::string& path);

  std::optional<std::uint64_t> Length() const override { return file_.Size(); }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return errorText_; }

 private:
  std::int32_t Note(std::int32_t error);

  InputFile file_;
  std::string errorText_;
};

/// A function with the contract of Read. When it gives another number of bytes than `length`, or
/// more than there was room, the body ends with 10022.
class FunctionBody final : public BodySource {
 public:
  using Reader = std::function<std::int32_t(std::span<std::uint8_t>, std::size_t&)>;

  /// Without `rewind` the body can be sent once only.
  FunctionBody(Reader read, std::optional<std::uint64_t> length, std::function<bool()> rewind = {})
      : read_(std::move(read)), rewind_(std::move(rewind)), length_(length) {}

  std::optional<std::uint64_t> Length() const override { return length_; }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return errorText_; }

 private:
  std::int32_t Fail(std::string text);

  Reader read_;
  std::function<bool()> rewind_;
  std::optional<std::uint64_t> length_;
  std::uint64_t given_ = 0;
  bool asked_ = false;
  std::string errorText_;
};

}  // namespace netro
