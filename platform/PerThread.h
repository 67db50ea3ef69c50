// State of which each thread has its own, made on first use and gone with the thread.
#pragma once

#include <memory>
#include <utility>

#include "platform/Process.h"

namespace netro {

/// The calling thread's T. Objects keep it alive beyond the thread; T::ThreadEnds is told of its
/// end. The child of a fork gets a new one: what it inherited is shared with the parent. When the
/// thread has already let go of it, as in the destructor of a static object, a last one serves that
/// lives to the end of the program.
template <class T, class Make>
const std::shared_ptr<T>& PerThread(Make make) {
  thread_local bool gone = false;
  struct Slot {
    std::shared_ptr<T> object;
    int process = 0;
    ~Slot() {
      gone = true;
      object->ThreadEnds();
    }
  };
  if (gone) {
    static const auto* const last = new std::shared_ptr<T>(make());
    return *last;
  }
  thread_local Slot slot{make(), ProcessId()};
  if (slot.process != ProcessId()) slot.object = make();
  slot.process = ProcessId();
  return slot.object;
}

}  // namespace netro
