// Real servers for the interop tests: finds an installed program, starts it on a free loopback port
// with a folder of its own, waits until it answers, and stops it by its process number. Also runs
// curl, whose answers are the measure. Thread: the test's.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/TemporaryFolder.h"

namespace netro::interop {

/// The path of a program in the system's folders; empty when it is not installed.
std::string FindProgram(const std::string& name);

/// What a program writes to its standard output until it ends; its status must be 0.
std::string Run(const std::vector<std::string>& arguments);

/// Fetches with curl, quietly, with the given arguments.
std::string Curl(std::vector<std::string> arguments);

/// The lines of an answer's header without those that differ from one answer to the next.
std::string StableHeader(const std::string& answer);
std::string Body(const std::string& answer);

/// What a server says to this datagram within 20 ms; empty when it says nothing.
std::string AskByHand(const std::string& address, int port, const std::string& datagram);

class ServerProcess {
 public:
  /// Writes the configuration for `port` into `folder` and returns the program and its arguments,
  /// which must keep it in the foreground.
  using Configure =
      std::function<std::vector<std::string>(const std::string& folder, const std::string& port)>;

  /// Tells whether the server answers; asked again and again.
  using Ready = std::function<bool(int port)>;

  /// Starts the server and waits until it is ready: without `ready` until the port takes
  /// connections. As somebody else may take the port first, a server that ends is started again on
  /// another one, twice.
  explicit ServerProcess(const Configure& configure, const Ready& ready = nullptr);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool IsUp() const { return process_ > 0; }
  int Port() const { return port_; }
  std::string Url(const std::string& path) const;
  const TemporaryFolder& Folder() const { return folder_; }
  /// What the server wrote to its output; shown when it did not start.
  std::string Output() const { return ReadFile(folder_ / "output"); }

 private:
  void Start(const std::vector<std::string>& arguments);
  bool AwaitReady(const Ready& ready);
  void Stop();

  TemporaryFolder folder_;
  pid_t process_ = 0;
  int port_ = 0;
};

}  // namespace netro::interop
