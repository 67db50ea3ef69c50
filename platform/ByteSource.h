// Where bytes to be sent come from: memory, a file, a function, or several of them in a row. A
// source is read piece by piece, so that only what is being sent stands in memory. Owned by who
// sends it; thread: one at a time. Nothing in here waits, but for what files and functions do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/InputFile.h"

namespace netro {

class ByteSource {
 public:
  virtual ~ByteSource() = default;

  /// The bytes from the beginning to the end; nothing when only the end will tell. A source that
  /// has a length gives exactly that many bytes or fails.
  virtual std::optional<std::uint64_t> Length() const = 0;

  /// Fills the front of `room`, which is not empty, and says with how much in `got`. Success with
  /// nothing got is the end. Returns 0 or an error number, see ErrorText; then what is sent must
  /// not be ended as if it were whole.
  virtual std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) = 0;

  /// Begins again, for what is sent once more. False when that cannot be done.
  virtual bool Rewind() = 0;

  /// What was wrong; empty when the number says it.
  virtual std::string ErrorText() const { return {}; }
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string bytes)
      : MemorySource(std::make_shared<const std::string>(std::move(bytes))) {}
  explicit MemorySource(const std::shared_ptr<const std::string>& bytes)
      : owner_(bytes), bytes_(*bytes) {}
  /// Bytes that must stay as they are.
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}

  std::optional<std::uint64_t> Length() const override { return bytes_.size(); }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;

 private:
  std::shared_ptr<const std::string> owner_;
  std::string_view bytes_;
  std::size_t position_ = 0;
};

/// A file, open only while it is being read. One that changes after Open ends with 20116. A copy
/// begins at the beginning of the same file, as it was at Open.
class FileSource final : public ByteSource {
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
class FunctionSource final : public ByteSource {
 public:
  using Reader = std::function<std::int32_t(std::span<std::uint8_t>, std::size_t&)>;

  /// Without `rewind` the body can be sent once only.
  FunctionSource(Reader read, std::optional<std::uint64_t> length,
                 std::function<bool()> rewind = {})
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

/// Sources that follow one another.
class JoinedSource final : public ByteSource {
 public:
  void Add(std::unique_ptr<ByteSource> source) { sources_.push_back(std::move(source)); }

  std::optional<std::uint64_t> Length() const override;
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override;

 private:
  std::vector<std::unique_ptr<ByteSource>> sources_;
  std::size_t present_ = 0;  // the one that is being read
};

/// Reads a source to its end, block by block. 0, or the number of what went wrong with the source or
/// with the function.
std::int32_t CopyAll(ByteSource& source,
                     const std::function<std::int32_t(std::span<const std::uint8_t>)>& take);

}  // namespace netro
