// The lines that a log has collected, and the file that they go to, by whatever file its name means
// when they do. Errors are the system's numbers. Thread: any, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/AppendFile.h"

namespace netro {

/// Appends `text` as a line of a log has it: on one line, controls escaped.
void AppendLogText(std::string& out, std::string_view text);

class LogBuffer {
 public:
  bool Active() const { return file_.IsOpen(); }
  std::size_t Lines() const { return lines_; }

  /// Opens the file `path`, an absolute one, behind its end. An empty one gets `header`, now and
  /// whenever it has been renamed, removed or emptied. On failure everything is as before.
  std::int32_t Open(const std::string& path, std::string header);
  void Close() { file_.Close(); }
  /// The file that the lines are for.
  const std::string& Path() const { return path_; }

  void Append(std::string_view text);
  /// Writes the lines. What could not be written stays.
  std::int32_t Commit();
  /// Writes lines that are left after a Close to their own file; then there are none any more.
  std::int32_t GiveUp();
  void StartWriteback() const { file_.StartWriteback(); }

 private:
  std::int32_t Follow(AppendFile::Standing& standing);
  std::int32_t WriteHeader();
  std::int32_t WriteLines(std::uint64_t size);
  void KeepFrom(std::size_t written);

  AppendFile file_;
  std::string path_;
  std::string header_;  // with its line end; of a file that was made here
  std::string text_;
  std::size_t lines_ = 0;
  bool failed_ = false;  // the last time that they were to be written
  // Of the first line so much stands at the end of this file, which has this size.
  std::size_t cut_ = 0;
  AppendFile::Identity cutFile_;
  std::uint64_t cutSize_ = 0;
};

}  // namespace netro
