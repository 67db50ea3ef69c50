#include "terminal/System.h"

#include <fcntl.h>
#include <iconv.h>
#include <netro/MessageLoop.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace netro::tool {

void PrepareStreams() {
  // A descriptor that the caller closed would be given to the first socket, and the answer printed
  // into it.
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) == -1) (void)::open("/dev/null", O_RDONLY);
  }
  // A reader that goes away ("netro get ... | head") is seen as a failed write.
  std::signal(SIGPIPE, SIG_IGN);
}

bool IsConsole(int descriptor) { return ::isatty(descriptor) == 1; }

bool UnderstandsStyles(int descriptor) {
  const char* kind = std::getenv("TERM");
  return IsConsole(descriptor) && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

bool IsOfForeground(int descriptor) { return ::tcgetpgrp(descriptor) == ::getpgrp(); }

ConsoleSize SizeOf(int descriptor) {
  ConsoleSize told;
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0) return told;
  if (size.ws_col > 0) told.columns = size.ws_col;
  if (size.ws_row > 0) told.rows = size.ws_row;
  return told;
}

bool IsLostReader(int error) { return error == EPIPE; }

void DropStuckOutput() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (::poll(&output, 1, 0) != 0) return;
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) ::dup2(nowhere, STDOUT_FILENO);
}

bool IsInputReady() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) != 0;
}

void AwaitMessages(MessageLoop& loop) {
  constexpr int kBlindly = 10;  // without a descriptor time passes all the same
  pollfd watched{loop.LoopFd(), POLLIN, 0};
  ::poll(&watched, 1, watched.fd < 0 ? kBlindly : -1);
}

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "";
}

bool MayOthersRead(const std::string& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

std::FILE* OpenNewFile(const std::string& name) { return std::fopen(name.c_str(), "wxe"); }

bool RenameOver(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool IsShortOfDescriptors() {
  bool isShort = false;
  std::vector<int> opened;  // what a socket takes beside itself has been closed again
  for (int i = 0; i < 4 && !isShort; ++i) {
    const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    isShort = descriptor < 0 && (errno == EMFILE || errno == ENFILE);
    if (descriptor >= 0) opened.push_back(descriptor);
  }
  for (const int descriptor : opened) ::close(descriptor);
  return isShort;
}

bool IsCharset(const std::string& name) {
  const iconv_t conversion = ::iconv_open(name.c_str(), "UTF-8");
  if (conversion == reinterpret_cast<iconv_t>(-1)) return false;
  ::iconv_close(conversion);
  return true;
}

int OpenDatagramSocket() { return ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

void CloseSocket(int socket) { ::close(socket); }

}  // namespace netro::tool
