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
void AwaitReadable(int descriptor, int milliseconds) {
  if (descriptor < 0) return std::this_thread::sleep_for(std::chrono::milliseconds(1));
  testkit::Watched watched[] = {{descriptor}};
  testkit::Await(watched, milliseconds);
}

bool MakePipe(const std::string& /*path*/) { return false; }

bool EchoIsPermitted() { return true; }

std::shared_ptr<void> WithoutRawSockets() { return nullptr; }

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace netro
