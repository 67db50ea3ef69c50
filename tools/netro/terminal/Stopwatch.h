// How long something takes. Thread: any.
#pragma once

#include <chrono>

namespace netro::tool {

class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace netro::tool
