// The bytes that a socket has taken from its owner and the system not yet from the socket. Belongs
// to one SocketCls and its thread. Adding and taking off cost amortised constant time for each
// byte; an empty queue holds no memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace netro {

class SendQueue {
 public:
  bool Empty() const { return Size() == 0; }
  std::size_t Size() const { return bytes_.size() - begin_; }
  /// The oldest bytes, `most` at most; valid until the next change.
  std::span<const std::uint8_t> Front(std::size_t most) const;

  /// Makes room, so that an Add of so many bytes cannot fail. Throws for lack of memory, leaving
  /// everything as it was.
  void Reserve(std::size_t size);
  void Add(std::span<const std::uint8_t> data);
  void Pop(std::size_t count);
  void Clear();

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t begin_ = 0;  // what is before it has gone out
};

}  // namespace netro
