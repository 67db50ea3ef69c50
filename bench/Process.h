// What the benchmarks run on: child processes, a folder for their files, listening sockets.
// Every child dies with its parent, so that an interrupted run leaves no process behind.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace netro::bench {

/// A child process that runs `main` and ends; killed and waited for by the destructor.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void()>& main);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Waits for the end and returns the status as waitpid gives it, -1 when there is no child.
  int Wait();

 private:
  pid_t pid_ = -1;
};

/// A new folder below TMPDIR (or /tmp), removed with all that it holds.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

/// A port of 127.0.0.1.
sockaddr_in LoopbackAddress(std::uint16_t port);

/// A listening socket on a free loopback port; -1 on failure. The caller closes it.
int ListenOnLoopback(std::uint16_t& port);

/// A datagram socket on a free loopback port; -1 on failure. The caller closes it.
int BindOnLoopback(std::uint16_t& port);

/// A blocking connection to a loopback port; -1 on failure. The caller closes it.
int ConnectToLoopback(std::uint16_t port);

/// Sends all of it over a blocking connection; false when that failed.
bool SendAll(int fd, std::string_view data);

/// Lets this process and its children open as many descriptors as the system allows; returns that
/// number.
std::uint64_t RaiseDescriptorLimit();

}  // namespace netro::bench
