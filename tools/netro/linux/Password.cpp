#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <string_view>

#include "terminal/Command.h"
#include "terminal/System.h"

namespace netro::tool {
namespace {

/// The terminal with its echo off, as it was again afterwards.
class SilentTerminal {
 public:
  SilentTerminal() : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (!IsOpen() || ::tcgetattr(descriptor_, &before_) != 0) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    silent.c_cc[VEOL] = before_.c_cc[VINTR];  // ends the line, so that the echo comes back first
    isSilent_ = ::tcsetattr(descriptor_, TCSAFLUSH, &silent) == 0;
  }
  ~SilentTerminal() {
    if (isSilent_) ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
    if (IsOpen()) ::close(descriptor_);
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;

  bool IsOpen() const { return descriptor_ >= 0; }
  void Write(std::string_view text) const {
    [[maybe_unused]] const auto written = ::write(descriptor_, text.data(), text.size());
  }
  /// None when Ctrl-C was typed.
  std::optional<std::string> ReadLine() const {
    std::string line;
    for (char c = 0; ::read(descriptor_, &c, 1) == 1 && c != '\n';) {
      if (isSilent_ && c == static_cast<char>(before_.c_cc[VINTR])) return std::nullopt;
      line += c;
    }
    return line;
  }

 private:
  const int descriptor_;
  termios before_{};
  bool isSilent_ = false;
};

std::string ReadToEnd(int descriptor) {
  std::string text;
  char block[4096];
  for (ssize_t got = 0; (got = ::read(descriptor, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace

std::optional<std::string> ReadSilently(const std::string& question) {
  const SilentTerminal terminal;
  if (!terminal.IsOpen()) throw UsageError("there is no terminal to ask for a password on");
  terminal.Write(question);
  std::optional<std::string> password = terminal.ReadLine();
  terminal.Write("\n");
  return password;
}

std::optional<std::string> RunAskProgram(const std::string& program, const std::string& question) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  char* const arguments[] = {const_cast<char*>(program.c_str()),
                             const_cast<char*>(question.c_str()), nullptr};
  pid_t process = 0;
  const int error =
      ::posix_spawnp(&process, program.c_str(), &actions, nullptr, arguments, environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  std::string text = error == 0 ? ReadToEnd(ends[0]) : std::string();
  ::close(ends[0]);
  int status = -1;
  if (error == 0) ::waitpid(process, &status, 0);
  if (status != 0) return std::nullopt;
  return text;
}

}  // namespace netro::tool
