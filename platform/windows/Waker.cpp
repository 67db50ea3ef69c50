#include "platform/Waker.h"

#include "platform/windows/Window.h"

namespace netro {

// The window belongs to the thread: its Notifier closes it, or the system does when the thread
// ends.
Waker::~Waker() = default;

std::intptr_t Waker::Open() {
  if (handle_ < 0) {
    const HWND window = MakeWindow();
    handle_ = window != nullptr ? reinterpret_cast<std::intptr_t>(window) : -1;
  }
  // A wake-up from before there was a window must not be lost.
  if (handle_ >= 0 && woken_.exchange(false)) Wake();
  return handle_;
}

void Waker::Wake() {
  if (woken_.exchange(true)) return;
  const std::intptr_t handle = handle_;
  if (handle < 0) return;
  // A queue that is full wakes by itself, and the next call tries again.
  if (PostMessageW(reinterpret_cast<HWND>(handle), kWakeMessage, 0, 0) == 0) woken_ = false;
}

void Waker::Clear() { woken_ = false; }

}  // namespace netro
