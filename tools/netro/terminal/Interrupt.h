// Ctrl-C that ends a running query in good order.
//
//     HTTPCls http;
//     const InterruptGuard guard(http);
//     http.HTTPQuery(timeout);  // ends with 9999 on Ctrl-C
//
// One guard at a time, on the main thread. SIGTERM counts as Ctrl-C, so that a half-written file is
// removed then as well. A second signal ends the program at once.
#pragma once

namespace netro::tool {

class InterruptGuard {
 public:
  template <class Object>
  explicit InterruptGuard(Object& object)
      : InterruptGuard(&object, [](void* target) { static_cast<Object*>(target)->StopWaiting(); }) {
  }
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  InterruptGuard(void* target, void (*stop)(void*));
};

}  // namespace netro::tool
