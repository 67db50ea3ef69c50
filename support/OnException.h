// Puts right what an exception would leave half done. Nothing of the library throws on purpose;
// what the host's functions throw, and missing memory, passes through it. Any thread.
#pragma once

#include <exception>
#include <utility>

namespace netro {

/// Calls `repair` when an exception leaves the scope.
///
///   const OnException close([&] { if (call->alive) Close(); });
template <class Repair>
class OnException {
 public:
  explicit OnException(Repair repair)
      : repair_(std::move(repair)), before_(std::uncaught_exceptions()) {}
  ~OnException() {
    if (std::uncaught_exceptions() <= before_) return;
    try {
      repair_();
    } catch (...) {  // an exception is on its way already
    }
  }
  OnException(const OnException&) = delete;
  OnException& operator=(const OnException&) = delete;

 private:
  Repair repair_;
  const int before_;
};

}  // namespace netro
