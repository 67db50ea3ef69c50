// A file that is read from its beginning to its end, and that must not change meanwhile. Functions
// return the error number (20000 plus the system's), 0 for success. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/ErrorNumbers.h"

namespace netro {

class InputFile {
 public:
  InputFile() = default;
  ~InputFile() { Close(); }
  /// The same file as it was examined, not read yet.
  InputFile(const InputFile& examined) : path_(examined.path_), facts_(examined.facts_) {}
  InputFile& operator=(const InputFile&) = delete;

  /// Notes which file it is, its size and its time of change, and that it can be read. It is not
  /// held open. Anything but a regular file is refused without waiting for it; links are followed.
  std::int32_t Examine(const std::string& path);
  std::uint64_t Size() const { return facts_.size; }
  const std::string& Path() const { return path_; }

  /// Fills the front of `room`, which is not empty, and says with how much in `got`; 0 is the end.
  /// A file that is no longer as it was examined is
  /// StaleFileNumber, at the latest before its
  /// last byte is given. The end and a failure stay, and close the file.
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got);

  /// The next Read begins at the beginning.
  void Rewind();

  /// True for the number of a file that has changed.
  static bool HasChanged(std::int32_t error) { return error == StaleFileNumber(); }

 private:
  struct Facts {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    std::uint64_t size = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
    bool operator==(const Facts&) const = default;
  };

  void Close();
  std::int32_t Open();
  std::int32_t ReadSome(std::span<std::uint8_t> room, std::size_t& got);
  static std::int32_t Look(std::intptr_t file, Facts& facts);
  std::int32_t CheckUnchanged() const;

  std::string path_;
  Facts facts_;
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t file_ = kNone;  // the system's number of the open file
  std::uint64_t read_ = 0;
  bool ended_ = false;
  std::int32_t error_ = 0;
};

}  // namespace netro
