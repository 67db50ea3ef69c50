// State of which each thread has its own, made on first use and gone with the thread.
#pragma once

#include <memory>
#include <utility>

namespace netro {

/// The calling thread's object. When the thread has already let go of it, as in the destructor of a
/// static object, a last one serves that lives to the end of the program.
template <class T, class Make>
const std::shared_ptr<T>& PerThread(Make make) {
  thread_local bool gone = false;
  struct Slot {
    std::shared_ptr<T> object;
    ~Slot() { gone = true; }
  };
  if (gone) {
    static const auto* const last = new std::shared_ptr<T>(make());
    return *last;
  }
  thread_local Slot slot{make()};
  return slot.object;
}

}  // namespace netro
