// A file that several programs share and that grows by records: one of them claims it, reads it and
// appends to it. Functions return the error number (20000 plus the system's), 0 for success. One
// thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

class JournalFile {
 public:
  JournalFile() = default;
  ~JournalFile() { Close(); }
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;

  /// Opens the file for reading. Links, folders and devices are refused, without waiting.
  std::int32_t Open(const std::string& path);
  /// Opens it for appending too and claims it, until it is closed or the program ends, however that
  /// comes: 20000 plus EWOULDBLOCK while another one has it, plus ENOENT when that one has removed
  /// or renamed it.
  std::int32_t Claim(const std::string& path);
  void Close();

  std::uint64_t Size() const { return size_; }
  /// Reads `count` bytes from `offset` on, fewer where the file ends before. After a failure `text`
  /// is empty.
  std::int32_t ReadAt(std::uint64_t offset, std::size_t count, std::string& text) const;
  /// The two reasons of a failed Claim that are nobody's fault.
  static bool IsTaken(std::int32_t error);
  static bool IsMissing(std::int32_t error);

  // Of a claimed file.

  /// The text is on the disk when this succeeds, and the file as it was before when it does not.
  std::int32_t Append(std::string_view text);
  /// Takes room on the disk for so many bytes that will be appended, where the file system can.
  std::int32_t Reserve(std::size_t count) const;
  /// Cuts off what is behind `size`.
  std::int32_t CutTo(std::uint64_t size);

 private:
  enum class Use { Read, Append };

  std::int32_t OpenFor(Use use, const std::string& path);
  std::int32_t LookAgain(const std::string& path);

  static constexpr std::intptr_t kNone = -1;
  std::intptr_t file_ = kNone;  // the system's number of the open file
  std::uint64_t size_ = 0;
};

}  // namespace netro
