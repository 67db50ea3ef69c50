// Ctrl-C that ends a running query in good order.
//
//     HTTPCls http;
//     const InterruptGuard guard(http);
//     http.HTTPQuery(timeout);  // ends with 9999 on Ctrl-C
//
// Once all has been cleaned up and shown, the command dies by the signal, as if it had never been
// caught: only so does a shell's loop end with it. Guards nest, on the main thread, and each hears
// a signal. SIGTERM counts as Ctrl-C, so that a half-written file is removed then as well. A second
// signal ends the program at once, unless the outermost guard has more patience.
#pragma once

namespace netro::tool {

class InterruptGuard {
 public:
  template <class Object>
  explicit InterruptGuard(Object& object, int patience = 1)
      : InterruptGuard(
            &object, [](void* target) { static_cast<Object*>(target)->StopWaiting(); }, patience) {}
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  InterruptGuard(void* target, void (*stop)(void*), int patience);
  static void OnSignal(int number);

  void* const target_;
  void (*const stop_)(void*);
  const InterruptGuard* const outer_;
};

/// SIGTERM was a good end: who sent it to a service hears of success.
void AcceptTermination();

/// Ends the program by the signal that a guard has heard, if there was one. The last call of all.
void DieIfInterrupted();

}  // namespace netro::tool
