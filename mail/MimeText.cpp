#include "mail/MimeText.h"

#include <utility>

#include "mail/Base64Source.h"
#include "support/Base64.h"

namespace netro {

MimeBytes HoldBytes(const std::shared_ptr<const std::string>& bytes) {
  return {bytes->size(), [bytes] { return std::make_unique<MemorySource>(bytes); }};
}

std::int32_t FindFile(const std::string& path, MimeBytes& bytes) {
  const auto file = std::make_shared<FileSource>();
  if (const std::int32_t error = file->Open(path)) return error;
  bytes = {*file->Length(), [file] { return std::make_unique<FileSource>(*file); }};
  return 0;
}

void MimeText::AddText(std::string text) {
  size_ += text.size();
  pieces_.push_back({std::make_shared<const std::string>(std::move(text)), {}});
}

void MimeText::AddFile(const MimeBytes& bytes) {
  const std::uint64_t size = Base64LinesSize(bytes.size);
  size_ += size;
  sizeOfFiles_ += size;
  pieces_.push_back({nullptr, bytes});
}

std::unique_ptr<ByteSource> MimeText::Open() const {
  auto all = std::make_unique<JoinedSource>();
  for (const Piece& piece : pieces_) {
    if (piece.text) {
      all->Add(std::make_unique<MemorySource>(piece.text));
    } else {
      all->Add(std::make_unique<Base64Source>(piece.file.open()));
    }
  }
  return all;
}

std::unique_ptr<ByteSource> MimeText::OpenTexts() const {
  auto texts = std::make_unique<JoinedSource>();
  for (const Piece& piece : pieces_) {
    if (piece.text) texts->Add(std::make_unique<MemorySource>(piece.text));
  }
  return texts;
}

std::shared_ptr<const std::string> MimeText::InMemory() const {
  return pieces_.size() == 1 ? pieces_.front().text : nullptr;
}

}  // namespace netro
