// Passwords that do not stand in the command line, and those that do.

#include "get/Secret.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

/// The terminal with its echo off, as it was again afterwards.
class SilentTerminal {
 public:
  SilentTerminal() : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    if (!IsOpen() || ::tcgetattr(descriptor_, &before_) != 0) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
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
  std::string ReadLine() const {
    std::string line;
    for (char c = 0; ::read(descriptor_, &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }

 private:
  const int descriptor_;
  termios before_{};
  bool isSilent_ = false;
};

void Overwrite(char* from, std::size_t size) { std::memset(from, '*', size); }

// "user:password" keeps its user, "user:password@host" its host too.
void BlankPassword(char* text, bool isUrl) {
  char* begin = text;
  if (char* scheme = std::strstr(text, "://")) begin = scheme + 3;
  const std::string_view rest(begin);
  const std::size_t authority = isUrl ? std::min(rest.find_first_of("/?#"), rest.size()) : rest.size();
  const std::size_t at = rest.substr(0, authority).rfind('@');
  if (isUrl && at == rest.npos) return;
  const std::size_t end = isUrl ? at : rest.size();
  const std::size_t colon = rest.find(':');
  if (colon < end) Overwrite(begin + colon + 1, end - colon - 1);
}

}  // namespace

std::string AskPassword(const std::string& question) {
  const SilentTerminal terminal;
  if (!terminal.IsOpen()) throw UsageError("there is no terminal to ask for a password on");
  terminal.Write(question);
  const std::string password = terminal.ReadLine();
  terminal.Write("\n");
  return password;
}

std::string ReadPasswordFile(const std::string& option, const std::string& file) {
  std::string text = ReadInput(option, file);
  text.erase(std::min(text.find_first_of("\r\n"), text.size()));
  return text;
}

void BlankSecrets(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view option(argv[i]);
    const bool isUser = option == "-u" || option == "--user";
    if ((isUser || option == "-x" || option == "--proxy") && i + 1 < argc) {
      BlankPassword(argv[++i], !isUser);
    } else if (option.starts_with("--user=")) {
      BlankPassword(argv[i] + 7, false);
    } else if (option.starts_with("--proxy=")) {
      BlankPassword(argv[i] + 8, true);
    } else if (option.starts_with("-u")) {
      BlankPassword(argv[i] + 2, false);
    } else if (!option.starts_with("-")) {
      BlankPassword(argv[i], true);
    }
  }
}

}  // namespace netro::tool
