#include "web/MultipartBody.h"

#include <string_view>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/FileTypes.h"
#include "platform/Folder.h"
#include "platform/Random.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kAnyBytes = "application/octet-stream";

std::string RandomBoundary() {
  std::string boundary = "----------------";
  for (int i = 0; i < 4; ++i) {
    const std::uint32_t number = RandomNumber();
    for (int shift = 0; shift < 32; shift += 8) {
      AppendHex(boundary, static_cast<char>(number >> shift & 0xFF));
    }
  }
  return boundary;
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\r' || c == '\n' || c == '\0') {
      quoted += '%';
      AppendHex(quoted, c);
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

std::string TypeByName(const std::string& fileName) {
  const std::size_t dot = fileName.rfind('.');
  std::string type;
  if (dot != std::string::npos) type = ContentTypeOf(ToLower(fileName.substr(dot + 1)));
  return type.empty() ? std::string(kAnyBytes) : type;
}

}  // namespace

MultipartBody::MultipartBody() : boundary_(RandomBoundary()), end_("--" + boundary_ + "--\r\n") {}

std::string MultipartBody::PartHead(const std::string& name) const {
  return "--" + boundary_ + "\r\nContent-Disposition: form-data; name=" + Quoted(name);
}

void MultipartBody::Add(std::string text) {
  pieces_.Add(std::make_unique<MemorySource>(std::move(text)));
}

void MultipartBody::AddField(const std::string& name, const std::string& value) {
  Add(PartHead(name) + "\r\n\r\n" + value + "\r\n");
}

std::int32_t MultipartBody::AddFile(const std::string& name, const File& file) {
  auto source = std::make_unique<FileSource>();
  if (const std::int32_t error = source->Open(file.path)) {
    errorText_ = source->ErrorText();
    return error;
  }
  return AddSource(name, file, std::move(source));
}

std::int32_t MultipartBody::AddSource(const std::string& name, const File& file,
                                      std::unique_ptr<ByteSource> source) {
  const std::string fileName =
      file.fileName.empty() ? file.path.substr(OwnNameAt(file.path)) : file.fileName;
  const std::string type = file.contentType.empty() ? TypeByName(fileName) : file.contentType;
  if (HasControlCharacter(type)) {
    errorText_ = "The content type of a part must not contain control characters.";
    return kErrInvalidArgument;
  }
  Add(PartHead(name) + "; filename=" + Quoted(fileName) + "\r\nContent-Type: " + type + "\r\n\r\n");
  pieces_.Add(std::move(source));
  Add("\r\n");
  return 0;
}

std::optional<std::uint64_t> MultipartBody::Length() const {
  const std::optional<std::uint64_t> pieces = pieces_.Length();
  return pieces ? *pieces + *end_.Length() : pieces;
}

std::int32_t MultipartBody::Read(std::span<std::uint8_t> room, std::size_t& got) {
  if (const std::int32_t error = pieces_.Read(room, got)) {
    errorText_ = pieces_.ErrorText();
    return error;
  }
  return got > 0 ? 0 : end_.Read(room, got);
}

bool MultipartBody::Rewind() {
  const bool all = pieces_.Rewind();
  return end_.Rewind() && all;
}

}  // namespace netro
