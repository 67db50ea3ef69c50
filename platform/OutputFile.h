// A new file that is written once: created with mode 0600, never through a link, removed again when
// it was not finished. Functions return the error number (20000 plus the system's), 0 for success.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <span>
#include <string>

namespace netro {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile() { Discard(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Creates `path`, replacing what was there.
  std::int32_t Create(const std::string& path);
  /// Goes on at the end of a file that is there and has `size` bytes. It counts as unfinished:
  /// Discard removes it too.
  std::int32_t Continue(const std::string& path, std::uint64_t size);
  /// Creates a file of a new unique name in the system's folder for temporary files.
  std::int32_t CreateTemporary(const std::string& prefix, const std::string& extension);
  /// The same in `folder`.
  std::int32_t CreateUnique(const std::string& folder, const std::string& prefix,
                            const std::string& extension);
  /// Appends; what does not fill a whole buffer waits for more.
  std::int32_t Write(std::span<const std::uint8_t> bytes);
  /// Closes the file and keeps it. An error that shows only now removes it.
  std::int32_t Finish();
  /// As Finish, then renames the file to `path` in the same folder, in one step and replacing what
  /// was there if that was a file or link. Fails with EBUSY when somebody else has written to the
  /// file or put another in its place. The bytes are on the disk before, so that not even a power
  /// failure leaves half a file under that name. On failure the file is removed and the old one
  /// stays.
  std::int32_t FinishAs(const std::string& path);
  /// Closes and removes a file that was not finished.
  void Discard();

  bool IsOpen() const { return file_ != kNone; }
  const std::string& Path() const { return path_; }

 private:
  std::int32_t Flush();

  // The system's side.
  std::int32_t WriteNow(std::span<const std::uint8_t> bytes);
  bool IsStillOurs() const;
  std::int32_t Sync();
  std::int32_t CloseNow();

  static constexpr std::intptr_t kNone = -1;
  std::intptr_t file_ = kNone;  // the system's number of the open file
  Bytes waiting_;               // bytes that were not worth a system call yet
  std::string path_;
  std::uint64_t size_ = 0;  // with all that was written
};

/// Removes a file or link; one that is not there is no error. Folders, devices and the like stay.
std::int32_t RemoveFile(const std::string& path);

/// 0 when a file may take the place of what has this name: nothing, a file or a link.
std::int32_t CanReplace(const std::string& path);

}  // namespace netro
