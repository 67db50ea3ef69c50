// Work that is shared out among tasks on this thread's loop.
#pragma once

#include <netro/MessageLoop.h>

#include <string>
#include <vector>

namespace netro::bench {

/// Starts so many tasks and waits for all of them. Each has an object of its own from `make`, and
/// calls it again and again until the calls of all have come to `calls`, or one has returned an
/// error text, which is handed on.
template <class Make>
std::string ShareOut(int tasks, int calls, const Make& make) {
  std::string error;
  MessageLoop& loop = MessageLoop::ForThisThread();
  std::vector<Task> started;
  for (int i = 0; i < tasks; ++i) {
    started.push_back(loop.StartTask([&] {
      auto call = make();
      while (error.empty() && calls-- > 0) {
        error = call();
      }
    }));
  }
  for (const Task& task : started) {
    if (const std::int32_t failed = task.Wait(); failed != 0 && error.empty()) {
      error = "task error " + std::to_string(failed);
    }
  }
  return error;
}

}  // namespace netro::bench
