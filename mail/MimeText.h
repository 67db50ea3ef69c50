// A composed message: texts, and between them files in Base64, which are encoded while they are
// read. It stays as it is; who reads it needs only what Open returns. Thread: any.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/ByteSource.h"

namespace netro {

/// Bytes that can be read any number of times: held in memory, or those of a file.
struct MimeBytes {
  std::uint64_t size = 0;
  std::function<std::unique_ptr<ByteSource>()> open;
};

MimeBytes HoldBytes(const std::shared_ptr<const std::string>& bytes);
/// Notes which file it is and how it is now. Returns 0, or 20000 plus the system's number for one
/// that cannot be read.
std::int32_t FindFile(const std::string& path, MimeBytes& bytes);

class MimeText {
 public:
  /// Lines ended by CR LF.
  void AddText(std::string text);
  void AddFile(const MimeBytes& bytes);

  std::uint64_t Size() const { return size_; }
  std::uint64_t SizeOfFiles() const { return sizeOfFiles_; }
  std::unique_ptr<ByteSource> Open() const;
  /// Without the files.
  std::unique_ptr<ByteSource> OpenTexts() const;
  /// All of it, when there are no files; else null.
  std::shared_ptr<const std::string> InMemory() const;

 private:
  struct Piece {
    std::shared_ptr<const std::string> text;  // null: a file
    MimeBytes file;
  };

  std::vector<Piece> pieces_;
  std::uint64_t size_ = 0;
  std::uint64_t sizeOfFiles_ = 0;
};

}  // namespace netro
