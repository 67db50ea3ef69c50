#include "socket/SendQueue.h"

#include <algorithm>

namespace netro {

std::span<const std::uint8_t> SendQueue::Front(std::size_t most) const {
  return std::span(bytes_).subspan(begin_, std::min(most, Size()));
}

void SendQueue::Reserve(std::size_t size) {
  const std::size_t left = Size();
  if (bytes_.capacity() - bytes_.size() >= size) return;
  // Moving what is left must not cost more than what has gone out, or what it makes room for.
  if (begin_ >= left && bytes_.capacity() - left >= size) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin_));
  } else {
    std::vector<std::uint8_t> larger;
    larger.reserve(left + std::max(left, size));
    larger.insert(larger.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin_), bytes_.end());
    bytes_.swap(larger);
  }
  begin_ = 0;
}

void SendQueue::Add(std::span<const std::uint8_t> data) {
  bytes_.insert(bytes_.end(), data.begin(), data.end());
  if (Empty()) Clear();  // of what was reserved
}

void SendQueue::Pop(std::size_t count) {
  begin_ += count;
  if (Empty()) Clear();
}

void SendQueue::Clear() {
  std::vector<std::uint8_t>().swap(bytes_);
  begin_ = 0;
}

}  // namespace netro
