// The lines that a log has collected, and the file that they go to. Errors are the system's
// numbers. Thread: any, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace netro {

class LogBuffer {
 public:
  bool Active() const { return file_ != nullptr; }
  std::size_t Lines() const { return lines_; }

  static bool Exists(const std::string& fileName);
  /// Opens the file behind its end, and makes it with `header` when it does not exist. On failure
  /// everything is as before: a file whose header cannot be written is removed again.
  std::int32_t Open(const std::string& fileName, std::string header);
  void Close() { file_.reset(); }

  void Append(std::string_view text);
  /// Writes the lines. What could not be written stays.
  std::int32_t Commit();

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  using File = std::unique_ptr<std::FILE, CloseFile>;

  void AppendOnOneLine(std::string_view text);
  static std::int32_t Write(const File& file, std::string& text);

  File file_;
  std::string fileName_;
  std::string header_;  // with its line end; of a file that was made here
  std::string text_;
  std::size_t lines_ = 0;
};

}  // namespace netro
