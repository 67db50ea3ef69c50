// What the Windows files of this folder share: the system's headers, names of files as it takes
// them, handles, and its error numbers as those of files.
#pragma once

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <bcrypt.h>
#include <iphlpapi.h>
#include <icmpapi.h>
#include <mmsystem.h>
#include <mstcpip.h>
#include <netioapi.h>
// clang-format on
#undef ReplaceFile  // a name of ours too

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Sockets.h"

namespace netro {

/// UTF-8 to UTF-16 and back; what is not valid becomes U+FFFD. Nothing after a lack of memory but
/// an exception.
std::wstring Widen(std::string_view utf8);
std::string Narrow(std::wstring_view wide);

/// A handle of the system's, closed with the object.
class Handle {
 public:
  explicit Handle(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
  ~Handle() { Close(); }
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE Get() const { return handle_; }
  HANDLE Release() { return std::exchange(handle_, INVALID_HANDLE_VALUE); }
  void Close() {
    if (IsOpen()) CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  HANDLE handle_;
};

/// Handles as the headers of platform/ keep them.
inline HANDLE ToHandle(std::intptr_t number) { return reinterpret_cast<HANDLE>(number); }
inline std::intptr_t ToNumber(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

/// The number of the C library (errno) for one of the system (GetLastError).
int FileError(DWORD systemError);
/// Of the last call.
inline int LastFileError() { return FileError(GetLastError()); }

/// What the system tells of an open file or of one that has a name; links are not followed.
struct FileFacts {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  std::uint64_t size = 0;
  std::uint64_t changed = 0;  // in 100 ns
  bool folder = false;
  bool link = false;
  bool device_like = false;  // a pipe, a console and the like
};
/// 0, or the C library's number.
int ReadFacts(HANDLE file, FileFacts& facts);
int ReadFacts(const std::string& path, FileFacts& facts);
/// The number for what is no regular file; 0 for one.
int ErrorOfKind(const FileFacts& facts);

/// How a file is opened.
struct OpenWay {
  DWORD access = GENERIC_READ;
  DWORD creation = OPEN_EXISTING;
  bool followsLinks = false;
};
/// Others may read, write, rename and remove it meanwhile. 0, or the C library's number; ELOOP for
/// a link that is not to be followed, EINVAL for a name with NUL.
int OpenFile(const std::string& path, const OpenWay& way, Handle& file);

/// Begins with the system's sockets, once.
void StartSockets();

inline SOCKET ToSocket(std::int32_t handle) {
  return static_cast<SOCKET>(static_cast<std::uint32_t>(handle));
}

/// An address as the system's calls take it. A new one has room for both families.
struct SystemAddress {
  union {
    sockaddr_in v4;
    sockaddr_in6 v6{};
  };
  int size = sizeof v6;

  sockaddr* Generic() { return reinterpret_cast<sockaddr*>(&v6); }
  const sockaddr* Generic() const { return reinterpret_cast<const sockaddr*>(&v6); }
};

SystemAddress ToSystem(const SocketAddress& address);
SocketAddress FromSystem(const SystemAddress& system);
/// None when it is of another family, or null.
std::optional<IpAddress> FromSystem(const sockaddr* name);

}  // namespace netro
