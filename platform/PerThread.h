// State of which each thread has its own, made on first use and gone with the thread.
#pragma once

#include <memory>
#include <utility>

#include "platform/Process.h"
#include "platform/ThreadEnd.h"

namespace netro {

/// Runs the thread's tasks to their end, if it has any: before the first of its states goes.
void EndTasksOfThread();

/// The calling thread's T. Objects keep it alive beyond the thread; T::ThreadEnds is told of its
/// end. The child of a fork gets a new one: what it inherited is shared with the parent, and kept,
/// since functions of it may be running below. When the thread has already let go of it, as in the
/// destructor of a static object, a last one serves that lives to the end of the program.
template <class T, class Make>
const std::shared_ptr<T>& PerThread(Make make) {
  thread_local bool gone = false;
  struct Slot {
    std::shared_ptr<T> object;
    int process = 0;
    std::shared_ptr<T> inherited;
  };
  thread_local Slot* slot = nullptr;
  constexpr auto kEnd = [](void* /*object*/) {
    EndTasksOfThread();
    gone = true;
    slot->object->ThreadEnds();
    delete std::exchange(slot, nullptr);
  };
  if (gone) {
    static const auto* const last = new std::shared_ptr<T>(make());
    return *last;
  }
  if (slot == nullptr) {
    auto made = std::make_unique<Slot>(Slot{make(), ProcessId(), nullptr});
    AtThreadEnd(kEnd, nullptr);
    slot = made.release();
  }
  if (slot->process != ProcessId()) {
    slot->inherited = std::exchange(slot->object, make());
    slot->process = ProcessId();
  }
  return slot->object;
}

}  // namespace netro
