// One limit for all that a piece of work does. Thread: the loop's.
#pragma once

#include <netro/MessageLoop.h>
#include <netro/Task.h>

#include <chrono>
#include <cstddef>
#include <exception>

namespace netro::tool {

/// Runs `work` in a task, whose calls end with 10002 at the limit. What it throws comes out.
template <class Work>
void RunWithin(std::chrono::milliseconds limit, Work work) {
  constexpr std::size_t kStack = std::size_t{1} << 20;
  std::exception_ptr thrown;
  const Task task = MessageLoop::ForThisThread().StartTask(
      [&] {
        try {
          work();
        } catch (...) {
          thrown = std::current_exception();
        }
      },
      kStack);
  if (task.Error() != 0) return work();
  task.Deadline(limit);
  while (!task.Done()) task.Wait();  // ends with Ctrl-C, as the task does soon
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace netro::tool
