// The hidden window that a loop is woken through, and the messages that mean something there.
#pragma once

#include "platform/windows/System.h"

namespace netro {

/// Of sockets, by WSAAsyncSelect: the handle, and event and error.
inline constexpr UINT kSocketMessage = 2000;
/// Of other threads, by Waker.
inline constexpr UINT kWakeMessage = 2001;

/// A new window of this thread, which nobody sees and no broadcast reaches; null when the system
/// has none left.
HWND MakeWindow();

/// Receives what a window is told when it is not the library that takes the messages.
class WindowOwner {
 public:
  virtual void OnMessage(UINT message, WPARAM first, LPARAM second) noexcept = 0;

 protected:
  ~WindowOwner() = default;
};
void SetWindowOwner(HWND window, WindowOwner* owner);

}  // namespace netro
