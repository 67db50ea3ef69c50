// A program for Windows with a window of its own, whose clock ticks on WM_TIMER. A download that
// blocks inside one of its messages does not stop the clock; and its GetMessage loop turns the
// library, whose timer ends the program.
//
// This is a self-check: it prints the ticks, and ends with 0 when both went on.
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <netro/testkit/HttpServer.h>
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace {

using netro::testkit::HttpServer;

constexpr UINT kDownload = WM_APP;
constexpr UINT_PTR kClock = 1;
constexpr UINT kTick = 50;  // ms
constexpr int kLibraryTicks = 5;

int ticks = 0;
int ticksDuring = 0;
int libraryTicks = 0;
std::string text;

void Download(const HttpServer& server) {
  netro::HTTPCls http;
  http.URL(server.Url("/"));
  bool timeout = false;
  const int before = ticks;
  text = http.HTTPQuery(timeout);
  ticksDuring = ticks - before;
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
  if (message == WM_TIMER) ++ticks;
  if (message != kDownload) return DefWindowProcW(window, message, first, second);
  Download(*reinterpret_cast<const HttpServer*>(second));
  netro::MessageLoop::ForThisThread().SetTimer(static_cast<std::int32_t>(kTick), [] {
    if (++libraryTicks == kLibraryTicks) PostQuitMessage(0);
  });
  return 0;
}

HWND MakeWindow() {
  WNDCLASSW facts{};
  facts.lpfnWndProc = &OnMessage;
  facts.lpszClassName = L"Clock";
  RegisterClassW(&facts);
  return CreateWindowW(L"Clock", L"Clock", WS_OVERLAPPEDWINDOW, 0, 0, 200, 100, nullptr, nullptr,
                       nullptr, nullptr);
}

}  // namespace

int main() {
  HttpServer server;
  server.On("/", [](const netro::testkit::HttpRequest&) {
    netro::testkit::Response late(
        HttpServer::Answer("200 OK\r\nContent-Type: text/plain\r\nContent-Length: 4", "late"));
    late.delay = std::chrono::seconds(1);
    return late;
  });

  const HWND window = MakeWindow();
  SetTimer(window, kClock, kTick, nullptr);
  PostMessageW(window, kDownload, 0, reinterpret_cast<LPARAM>(&server));
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  std::printf("ticks during the download: %d; of the library, in the program's loop: %d\n",
              ticksDuring, libraryTicks);
  return text.ends_with("late") && ticksDuring >= 10 && libraryTicks == kLibraryTicks ? 0 : 1;
}
