#include "terminal/System.h"

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <windows.h>
// clang-format on
#include <fcntl.h>
#include <io.h>
#include <netro/MessageLoop.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

namespace netro::tool {
namespace {

constexpr int kStandardError = 2;

HANDLE HandleOf(int descriptor) { return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor)); }

std::wstring Wide(const std::string& text) {
  const auto size = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size);
  wide.resize(static_cast<std::size_t>(count));
  return wide;
}

}  // namespace

void PrepareStreams() {
  for (int descriptor = 0; descriptor <= kStandardError; ++descriptor) {
    // Lines end in "\n", and bodies are bytes.
    if (_setmode(descriptor, _O_BINARY) == -1) (void)_open("NUL", _O_RDWR | _O_BINARY);
  }
  _fmode = _O_BINARY;
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  SetConsoleOutputCP(CP_UTF8);
  SetConsoleCP(CP_UTF8);
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  WSADATA data{};
  (void)WSAStartup(MAKEWORD(2, 2), &data);
}

bool IsConsole(int descriptor) {
  DWORD mode = 0;  // the null device is none, whatever _isatty says
  return GetConsoleMode(HandleOf(descriptor), &mode) != 0;
}

bool UnderstandsStyles(int descriptor) {
  DWORD mode = 0;
  const HANDLE console = HandleOf(descriptor);
  return GetConsoleMode(console, &mode) != 0 &&
         SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

bool IsOfForeground(int descriptor) { return IsConsole(descriptor); }

ConsoleSize SizeOf(int descriptor) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(HandleOf(descriptor), &info) == 0) return {};
  return {info.srWindow.Right - info.srWindow.Left + 1,
          info.srWindow.Bottom - info.srWindow.Top + 1};
}

// The C library knows the system's word for a pipe that is being closed as no better one.
bool IsLostReader(int error) { return error == EPIPE || error == EINVAL; }

// The write that waits holds the stream's lock: what ends it is the second Ctrl-C.
void DropStuckOutput() {}

bool IsInputReady() {
  const HANDLE input = HandleOf(0);
  DWORD count = 0;
  return GetFileType(input) != FILE_TYPE_PIPE ||
         PeekNamedPipe(input, nullptr, 0, nullptr, &count, nullptr) == 0 || count > 0;
}

void AwaitMessages(MessageLoop& /*loop*/) {
  MsgWaitForMultipleObjectsEx(0, nullptr, INFINITE, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
}

std::string HomeFolder() {
  const char* home = std::getenv("USERPROFILE");
  return home != nullptr ? home : "";
}

// Files have no mode: a home folder is its owner's.
bool MayOthersRead(const std::string& /*file*/) { return false; }

std::FILE* OpenNewFile(const std::string& name) {
  constexpr int kNew = _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT;
  const int descriptor = _wopen(Wide(name).c_str(), kNew, _S_IREAD | _S_IWRITE);
  return descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
}

bool RenameOver(const std::string& from, const std::string& to) {
  if (MoveFileExW(Wide(from).c_str(), Wide(to).c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {
    return true;
  }
  errno = GetLastError() == ERROR_PATH_NOT_FOUND ? ENOENT : EACCES;
  return false;
}

bool IsShortOfDescriptors() { return false; }  // its programs have more than they can use

bool IsCharset(const std::string& name) {
  const std::wstring key = L"MIME\\Database\\Charset\\" + Wide(name);
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
    return false;
  }
  RegCloseKey(opened);
  return true;
}

int OpenDatagramSocket() {
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  if (socket == INVALID_SOCKET) return -1;
  u_long nonBlocking = 1;
  ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
  return static_cast<int>(socket);
}

void CloseSocket(int socket) { closesocket(static_cast<SOCKET>(socket)); }

}  // namespace netro::tool
