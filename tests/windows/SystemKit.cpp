#include "tests/SystemKit.h"

#include <stdlib.h>
#include <time.h>
#include <winsock2.h>

#include <chrono>
#include <thread>

#include "testkit/Sockets.h"

namespace netro {

void SetVariable(const char* name, const char* value) {
  _putenv_s(name, value != nullptr ? value : "");
}

void ReadTimeZone() { _tzset(); }

// The loop has none: its window does what a descriptor does elsewhere.
bool AwaitReadable(int descriptor, int milliseconds) {
  if (descriptor < 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return false;
  }
  testkit::Watched watched[] = {{descriptor}};
  testkit::Await(watched, milliseconds);
  return watched[0].ready;
}

std::size_t Unread(int socket) {
  u_long count = 0;
  return ioctlsocket(static_cast<SOCKET>(socket), FIONREAD, &count) == 0 ? count : 0;
}

bool HasNoDelay(int socket) {
  BOOL value = FALSE;
  int size = sizeof value;
  return getsockopt(static_cast<SOCKET>(socket), IPPROTO_TCP, TCP_NODELAY,
                    reinterpret_cast<char*>(&value), &size) == 0 &&
         value != FALSE;
}

void SendUrgent(int socket) { send(static_cast<SOCKET>(socket), "!", 1, MSG_OOB); }

bool InChild(const std::function<bool()>& /*work*/) { return false; }

std::shared_ptr<void> WithDescriptors(unsigned /*more*/) { return nullptr; }
std::shared_ptr<void> WithFileSize(unsigned /*bytes*/) { return nullptr; }
std::shared_ptr<void> WithArrivalTimes() { return nullptr; }

bool HasMode(const std::string& /*path*/, int /*mode*/) { return true; }

bool MakePipe(const std::string& /*path*/) { return false; }

bool EchoIsPermitted() { return true; }

std::shared_ptr<void> WithoutRawSockets() { return nullptr; }

bool KnowsServices() { return getservbyname("http", "tcp") != nullptr; }

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace netro
