#include "ServerProcess.h"

#include <netro/testkit/LoopbackServer.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>


extern char** environ;

namespace netro::interop {
namespace {

using std::chrono::steady_clock;

constexpr auto kStartLimit = std::chrono::seconds(10);
constexpr auto kStopLimit = std::chrono::seconds(5);

// Its own process group, so that children left behind by the server can be ended with it.
pid_t Spawn(const std::vector<std::string>& arguments, int output, bool errorsToo) {
  std::vector<char*> words;
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
  if (errorsToo) posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  pid_t process = 0;
  if (posix_spawnp(&process, words[0], &files, &attributes, words.data(), environ) != 0)
    process = 0;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return process;
}

// Waits so long for a child to end; true when it has.
bool AwaitEnd(pid_t process, int milliseconds) {
  pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, process, 0)), POLLIN, 0};
  const bool result = poll(&ended, 1, milliseconds) > 0;
  if (ended.fd >= 0) close(ended.fd);
  return result;
}

bool TakesConnections(int port) {
  const int fd = testkit::ConnectToLoopback(port);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

}  // namespace

std::string FindProgram(const std::string& name) {
  for (const char* folder : {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/"})
    if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
  return {};
}

std::string Run(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t process = Spawn(arguments, ends[1], false);
  close(ends[1]);
  std::string output;
  char block[65536];
  for (ssize_t n; (n = read(ends[0], block, sizeof block)) > 0;)
    output.append(block, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = -1;
  if (process > 0) waitpid(process, &status, 0);
  EXPECT_EQ(status, 0) << arguments[0];
  return output;
}

std::string Curl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"curl", "--silent", "--noproxy", ""});
  return Run(arguments);
}

std::string StableHeader(const std::string& answer) {
  std::istringstream lines(answer.substr(0, answer.find("\r\n\r\n")));
  std::string line, header;
  while (std::getline(lines, line))
    if (line.rfind("Date:", 0) != 0) header += line + "\n";
  return header;
}

std::string Body(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : answer.substr(end + 4);
}

std::string AskByHand(const std::string& address, int port, const std::string& datagram) {
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<std::uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &server.sin_addr);
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  pollfd reply{fd, POLLIN, 0};
  char bytes[512];
  ssize_t size = 0;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0 &&
      send(fd, datagram.data(), datagram.size(), 0) > 0 && poll(&reply, 1, 20) == 1)
    size = recv(fd, bytes, sizeof bytes, 0);
  close(fd);
  return {bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

ServerProcess::ServerProcess(const Configure& configure, const Ready& ready) {
  chmod(folder_.Path().c_str(), 0755);  // for servers that give up root
  for (int attempt = 0; attempt < 3 && process_ == 0; ++attempt) {
    port_ = testkit::RefusingPort().Port();
    Start(configure(folder_.Path(), std::to_string(port_)));
    if (!AwaitReady(ready ? ready : TakesConnections)) Stop();
  }
}

ServerProcess::~ServerProcess() { Stop(); }

std::string ServerProcess::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void ServerProcess::Start(const std::vector<std::string>& arguments) {
  const std::string name = folder_ / "output";
  const int output = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  std::vector<std::string> words = arguments;
  if (!FindProgram("setpriv").empty())  // ends with the test, however that ends
    words.insert(words.begin(), {"setpriv", "--pdeathsig", "TERM"});
  process_ = Spawn(words, output, true);
  close(output);
}

bool ServerProcess::AwaitReady(const Ready& ready) {
  const auto deadline = steady_clock::now() + kStartLimit;
  while (process_ > 0 && steady_clock::now() < deadline) {
    if (ready(port_)) return true;
    if (AwaitEnd(process_, 5)) return false;
  }
  return false;
}

void ServerProcess::Stop() {
  if (process_ <= 0) return;
  kill(process_, SIGTERM);
  AwaitEnd(process_, static_cast<int>(std::chrono::milliseconds(kStopLimit).count()));
  kill(-process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = 0;
}

}  // namespace netro::interop
