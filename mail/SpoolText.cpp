#include "mail/SpoolText.h"

#include <algorithm>

#include "mail/SpoolFolder.h"
#include "platform/ErrorNumbers.h"

namespace netro {

std::int32_t SpoolText::Read(std::span<std::uint8_t> room, std::size_t& got) {
  got = 0;
  if (!open_) {
    if (const std::int32_t error = file_.Open(path_)) return Fail(error);
    open_ = true;
  }
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), size_ - read_));
  if (wanted == 0) {
    file_.Close();
    return 0;
  }
  std::string block;
  if (const std::int32_t error = file_.ReadAt(begin_ + read_, wanted, block)) return Fail(error);
  if (block.empty()) return Fail(StaleFileNumber());
  std::ranges::copy(block, room.begin());
  got = block.size();
  read_ += got;
  return 0;
}

bool SpoolText::Rewind() {
  file_.Close();
  open_ = false;
  read_ = 0;
  return true;
}

std::int32_t SpoolText::Fail(std::int32_t error) {
  errorText_ = SpoolErrorText(error, path_);
  return error;
}

}  // namespace netro
