// A file that grows at its end, and whose name others may give to another file meanwhile: a
// rotation renames it, removes it or empties it, and several programs may append to it. Functions
// return the system's number, 0 for success. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

class AppendFile {
 public:
  AppendFile() = default;
  ~AppendFile() { Close(); }
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;

  /// Opens the file, or makes it with mode 0640, less the umask. A link is refused with ELOOP, but
  /// for the names of open descriptors, as /dev/stdout. An empty file gets `header`. On failure
  /// everything is as before: a file whose header could not be written is removed again, and one
  /// that was open stays open.
  std::int32_t Open(const std::string& path, std::string_view header);
  bool IsOpen() const { return handle_ != kNone; }
  /// What tells this file from all others, whatever its name.
  struct Identity {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    bool operator==(const Identity&) const = default;
  };
  const Identity& File() const { return file_; }
  void Close();

  /// What is to be known before a write.
  struct Standing {
    bool named = false;    // the name means this file, or cannot be looked at from here
    bool removed = false;  // no name means it any more: what is written is lost
    std::uint64_t size = 0;
  };
  Standing Look() const;
  /// Whether it was removed; cheaper than a look.
  bool IsRemoved() const;

  /// Writes, without waiting for the reader of a pipe, with one call to the system, so that what
  /// other programs append stands before it or behind it; more than one where the system takes only
  /// a part. `written` is told also on failure.
  std::int32_t Write(std::string_view text, std::size_t& written) const;
  /// False when a line has been left unfinished at the end, by whomever; true when that cannot be
  /// seen.
  bool EndsInLine() const;
  /// Has the system begin to bring to the disk what was written. It is not waited for.
  void StartWriteback() const;

 private:
  static bool FactsOf(const char* path, Identity& identity, std::uint64_t& size);

  std::string path_;
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t handle_ = kNone;  // the system's number of the open file
  bool isPipe_ = false;  // which has no header
  Identity file_;
  Identity root_;  // in another one the path means something else
};

/// The path with the current folder before it; as it is when that folder is gone.
std::string AbsolutePath(const std::string& path);
/// A file that cannot be looked at counts as there: opening it will tell what is wrong.
bool FileExists(const std::string& path);

}  // namespace netro
