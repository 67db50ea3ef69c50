// What the sanitizers want to know of a switch between stacks; nothing in other builds. For
// AddressSanitizer each switch says where the stack is that it goes to, for ThreadSanitizer which
// of its "fibers" goes on.
#pragma once

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NETRO_ASAN_FIBERS 1
#endif
#if __has_feature(thread_sanitizer)
#define NETRO_TSAN_FIBERS 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define NETRO_ASAN_FIBERS 1
#endif
#if defined(__SANITIZE_THREAD__)
#define NETRO_TSAN_FIBERS 1
#endif

#ifdef NETRO_ASAN_FIBERS
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif
#ifdef NETRO_TSAN_FIBERS
#include <sanitizer/tsan_interface.h>
#endif

namespace netro {

class FiberChecks {
 public:
#ifdef NETRO_TSAN_FIBERS
  FiberChecks() : inside_(__tsan_create_fiber(0)) {}
  ~FiberChecks() { __tsan_destroy_fiber(inside_); }
#else
  FiberChecks() = default;
#endif
  FiberChecks(const FiberChecks&) = delete;
  FiberChecks& operator=(const FiberChecks&) = delete;

  /// Around the switch into the fiber, on the side that it comes from.
  void BeforeEntering([[maybe_unused]] void* stack, [[maybe_unused]] std::size_t size) {
#ifdef NETRO_ASAN_FIBERS
    __sanitizer_start_switch_fiber(&outerFrames_, stack, size);
#endif
#ifdef NETRO_TSAN_FIBERS
    outside_ = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(inside_, 0);
#endif
  }
  void AfterReturning() {
#ifdef NETRO_ASAN_FIBERS
    __sanitizer_finish_switch_fiber(outerFrames_, nullptr, nullptr);
#endif
  }

  /// Around the switch out of the fiber, inside it; `forGood` when it will never be entered again.
  void BeforeLeaving([[maybe_unused]] bool forGood) {
#ifdef NETRO_ASAN_FIBERS
    __sanitizer_start_switch_fiber(forGood ? nullptr : &innerFrames_, outerStack_, outerSize_);
#endif
#ifdef NETRO_TSAN_FIBERS
    __tsan_switch_to_fiber(outside_, 0);
#endif
  }
  void AfterEntering() {
#ifdef NETRO_ASAN_FIBERS
    __sanitizer_finish_switch_fiber(innerFrames_, &outerStack_, &outerSize_);
#endif
  }

  /// The memory of a stack is used for something else.
  static void Forget([[maybe_unused]] void* stack, [[maybe_unused]] std::size_t size) {
#ifdef NETRO_ASAN_FIBERS
    __asan_unpoison_memory_region(stack, size);
#endif
  }

 private:
#ifdef NETRO_ASAN_FIBERS
  void* outerFrames_ = nullptr;
  void* innerFrames_ = nullptr;
  const void* outerStack_ = nullptr;
  std::size_t outerSize_ = 0;
#endif
#ifdef NETRO_TSAN_FIBERS
  void* inside_;
  void* outside_ = nullptr;
#endif
};

}  // namespace netro
