#include "platform/windows/Window.h"

namespace netro {
namespace {

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
  auto* const owner = reinterpret_cast<WindowOwner*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (owner != nullptr &&
      (message == kSocketMessage || message == kWakeMessage || message == WM_TIMER)) {
    owner->OnMessage(message, first, second);
    return 0;
  }
  return DefWindowProcW(window, message, first, second);
}

// The module that this code is in, which may be a library of the program's.
HINSTANCE Module() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&Procedure), &module);
  return module;
}

ATOM WindowClass() {
  static const ATOM made = [] {
    WNDCLASSEXW facts{};
    facts.cbSize = sizeof facts;
    facts.lpfnWndProc = &Procedure;
    facts.hInstance = Module();
    facts.lpszClassName = L"NetroNotifications";
    return RegisterClassExW(&facts);
  }();
  return made;
}

}  // namespace

HWND MakeWindow() {
  const auto* const name = reinterpret_cast<const wchar_t*>(std::uintptr_t{WindowClass()});
  return CreateWindowExW(0, name, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, Module(), nullptr);
}

void SetWindowOwner(HWND window, WindowOwner* owner) {
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(owner));
}

}  // namespace netro
