// Programs that are started and left to themselves, or looked after. Starting one costs the same
// however much memory this process has. Any thread, one object on one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

class RunningProgram {
 public:
  RunningProgram() = default;
  /// The program goes on by itself. Its end is taken in when the next one is started.
  ~RunningProgram();
  RunningProgram(RunningProgram&& other) noexcept
      : id_(std::exchange(other.id_, 0)), handle_(std::exchange(other.handle_, -1)) {}
  RunningProgram& operator=(RunningProgram&& other) noexcept {
    std::swap(id_, other.id_);
    std::swap(handle_, other.handle_);
    return *this;
  }

  /// Starts a program without a shell, found by PATH when its name holds no "/", in a session of
  /// its own. It reads `input` from its standard input (a file, on Linux also as /dev/stdin), what
  /// it prints is thrown away, and it has no other descriptor of this process. Once for an object.
  /// Returns 0, or the error number (20000 plus the system's) of why it could not be started.
  std::int32_t Start(const std::string& program, const std::vector<std::string>& arguments,
                     std::string_view input = {});

  /// True once it has ended, or was never started. Takes its end in, and no other child's. Does not
  /// wait.
  bool HasEnded();
  /// Ends it and what it has started, but for what has left its session's group.
  void Kill();

 private:
  // The system's: which process, and what it is held by.
  std::intptr_t id_ = 0;
  std::intptr_t handle_ = -1;
};

/// Starts a program, as above, and leaves it to itself.
std::int32_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          std::string_view input = {});

}  // namespace netro
