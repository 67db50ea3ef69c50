// A form as a body (multipart/form-data, RFC 7578): fields and files, one part after the other.
// Files are read while they are sent. Owned by the request; thread: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/ByteSource.h"

namespace netro {

class MultipartBody final : public ByteSource {
 public:
  /// The boundary is random, so that nobody can write a value that ends its part.
  MultipartBody();

  /// Names may be any text; quotation marks, CR, LF and NUL are percent-encoded, as browsers do.
  void AddField(const std::string& name, const std::string& value);

  struct File {
    std::string path;
    std::string fileName;     // as the server gets it; empty: the path's last part
    std::string contentType;  // empty: what the extension says
  };
  /// Returns 0, 20000 plus the system's number for a file that cannot be read, or 10022 for a
  /// content type that cannot stand in a header; then ErrorText says so and nothing is added.
  std::int32_t AddFile(const std::string& name, const File& file);
  /// The same with another source; of `file` the path is not used.
  std::int32_t AddSource(const std::string& name, const File& file,
                         std::unique_ptr<ByteSource> source);

  /// The value of the request's Content-Type.
  std::string ContentType() const { return "multipart/form-data; boundary=" + boundary_; }

  std::optional<std::uint64_t> Length() const override;
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return errorText_; }

 private:
  std::string PartHead(const std::string& name) const;
  void Add(std::string text);

  std::string boundary_;
  JoinedSource pieces_;  // texts and files
  MemorySource end_;
  std::string errorText_;
};

}  // namespace netro
