// The documented numbers are those of this system's sockets, so nearly all stay what they are.
#include "platform/ErrorNumbers.h"

#include <system_error>

#include "platform/windows/System.h"

namespace netro {
namespace {

// This C library has no name for it, and takes its number for something of the network's.
constexpr int kStale = 116;

std::string SystemText(std::int32_t number) {
  wchar_t text[512];
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, static_cast<DWORD>(number), 0, text, static_cast<DWORD>(std::size(text)), nullptr);
  std::string told = Narrow({text, length});
  while (!told.empty() && (told.back() == ' ' || told.back() == '.')) told.pop_back();
  return told;
}

}  // namespace

std::int32_t SocketErrorNumber(int systemError) {
  switch (systemError) {
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return kErrNoBuffers;
    case ERROR_ACCESS_DENIED:
      return WSAEACCES;
    case ERROR_INVALID_HANDLE:
      return kErrNotSocket;
    case ERROR_INVALID_PARAMETER:
      return kErrInvalidArgument;
    case ERROR_PORT_UNREACHABLE:
    case ERROR_CONNECTION_REFUSED:
      return kErrRefused;
    default:
      break;
  }
  const bool documented = systemError == 0 || (systemError >= WSABASEERR && systemError < 12'000);
  return documented ? systemError : kSystemErrorBase + FileError(static_cast<DWORD>(systemError));
}

std::int32_t FileErrorNumber(int systemError) { return kSystemErrorBase + systemError; }

std::int32_t StaleFileNumber() { return FileErrorNumber(kStale); }

std::string SystemErrorText(std::int32_t number) {
  if (number == StaleFileNumber()) return "The file has changed meanwhile";
  if (number > kSystemErrorBase && number < kSystemErrorBase + 4096) {
    return std::generic_category().message(number - kSystemErrorBase);
  }
  return number >= WSABASEERR && number < 10'113 ? SystemText(number) : std::string();
}

}  // namespace netro
