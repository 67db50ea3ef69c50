// Processes, folders and sockets by the system's own calls. Thread: the main thread, because a
// child is bound to the thread that forked it.

#include "bench/Process.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace netro::bench {
namespace {

/// An exception must not reach the parent's frames, whose destructors belong to the parent.
[[noreturn]] void RunChild(const std::function<void()>& main) noexcept {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  main();
  _exit(0);
}

int BindSocket(int type, std::uint16_t& port) {
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  sockaddr_in address = LoopbackAddress(0);
  socklen_t size = sizeof address;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    close(fd);
    return -1;
  }
  port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void()>& main) {
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    RunChild(main);
  }
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    Wait();
  }
}

int ChildProcess::Wait() {
  int status = -1;
  if (pid_ > 0) {
    waitpid(pid_, &status, 0);
    pid_ = -1;
  }
  return status;
}

TempFolder::TempFolder() {
  std::error_code error;
  const auto parent = std::filesystem::temp_directory_path(error);
  path_ = (error ? "/tmp" : parent.string()) + "/netro-bench-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) {
    std::perror(path_.c_str());
    std::exit(1);
  }
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

sockaddr_in LoopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int ListenOnLoopback(std::uint16_t& port) {
  const int fd = BindSocket(SOCK_STREAM, port);
  if (fd >= 0 && listen(fd, SOMAXCONN) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

int BindOnLoopback(std::uint16_t& port) { return BindSocket(SOCK_DGRAM, port); }

int ConnectToLoopback(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = LoopbackAddress(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

bool SendAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t sent = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    data.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::uint64_t RaiseDescriptorLimit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

}  // namespace netro::bench
