// Passwords that do not stand in the command line, and those that do.

#include "terminal/Secret.h"

#include <fcntl.h>
#include <spawn.h>
#include <strings.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/OptionValues.h"
#include "terminal/Terminal.h"

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

/// None when Ctrl-C was typed.
std::optional<std::string> ReadSilently(const std::string& question) {
  const SilentTerminal terminal;
  if (!terminal.IsOpen()) throw UsageError("there is no terminal to ask for a password on");
  terminal.Write(question);
  std::optional<std::string> password = terminal.ReadLine();
  terminal.Write("\n");
  return password;
}

std::string AskProgram() {
  for (const char* name : {"NETRO_ASKPASS", "SSH_ASKPASS"}) {
    const char* const program = std::getenv(name);
    if (program != nullptr && *program != '\0') return program;
  }
  return {};
}

std::string ReadToEnd(int descriptor) {
  std::string text;
  char block[4096];
  for (ssize_t got = 0; (got = ::read(descriptor, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  return text;
}

/// What the program prints up to the end of the first line; none when it fails.
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
  text.erase(std::min(text.find_first_of("\r\n"), text.size()));
  return text;
}

bool IsAtTerminal() { return ::isatty(STDIN_FILENO) == 1 && IsTerminal(Stream::Error); }

void Overwrite(char* from, std::size_t size) { std::memset(from, '*', size); }

bool IsNumber(std::string_view text) { return text.find_first_not_of("0123456789") == text.npos; }

// "user:password" keeps its user, "user:password@host" its host too.
void BlankPassword(char* text, bool isUrl) {
  char* begin = text;
  if (char* scheme = std::strstr(text, "://"); isUrl && scheme != nullptr) begin = scheme + 3;
  const std::string_view rest(begin);
  const std::size_t authority =
      isUrl ? std::min(rest.find_first_of("/?#"), rest.size()) : rest.size();
  const std::size_t colon = rest.find(':');
  std::size_t at = rest.substr(0, authority).rfind('@');
  // In a bad URL the password may hold what ends an authority.
  if (at == rest.npos && colon < authority &&
      !IsNumber(rest.substr(colon + 1, authority - colon - 1)))
    at = rest.rfind('@');
  if (isUrl && at == rest.npos) return;
  const std::size_t end = isUrl ? at : rest.size();
  if (colon < end) Overwrite(begin + colon + 1, end - colon - 1);
}

// "Authorization: Basic ..." keeps its name.
void BlankField(char* line) {
  char* colon = std::strchr(line, ':');
  if (colon == nullptr) return;
  const std::string_view name(line, static_cast<std::size_t>(colon - line));
  for (const std::string_view secret : {"Authorization", "Proxy-Authorization", "Cookie"}) {
    const bool same =
        name.size() == secret.size() && ::strncasecmp(line, secret.data(), name.size()) == 0;
    if (same) Overwrite(colon + 1, std::strlen(colon + 1));
  }
}

/// The short form of an option.
char KindOf(std::string_view name) {
  if (name == "--user") return 'u';
  if (name == "--proxy") return 'x';
  return name == "--header" ? 'H' : '\0';
}

/// The next line of standard input, without reading ahead: further ones may be for others.
std::string ReadInputLine(const std::string& option) {
  std::string line;
  ssize_t got = 0;
  char c = 0;
  while ((got = ::read(STDIN_FILENO, &c, 1)) == 1 && c != '\n') line += c;
  if (got < 0) {
    throw UsageError(option + ": cannot read standard input: " + std::strerror(errno));
  }
  return line;
}

bool IsSecret(char kind) { return kind == 'u' || kind == 'x' || kind == 'H'; }

void Blank(char kind, char* value) {
  if (kind == 'H') return BlankField(value);
  BlankPassword(value, kind == 'x');
}

}  // namespace

bool CanAskPassword() { return IsAtTerminal() || !AskProgram().empty(); }

std::string AskPassword(const std::string& question) {
  if (const std::string program = AskProgram(); !program.empty() && !IsAtTerminal()) {
    const std::optional<std::string> password = RunAskProgram(program, question);
    if (!password) throw UsageError(program + " gave no password");
    return *password;
  }
  const std::optional<std::string> password = ReadSilently(question);
  if (!password) {
    // The terminal did not send it, so that the echo came back first.
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
    throw UsageError("no password was given");
  }
  return *password;
}

std::string ReadPasswordFile(const std::string& option, const std::string& file) {
  if (file == "-" && IsAtTerminal()) return AskPassword("Password (" + option + "): ");
  std::string text = file == "-" ? ReadInputLine(option) : ReadInput(option, file);
  text.erase(std::min(text.find_first_of("\r\n"), text.size()));
  return text;
}

void BlankSecrets(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view option(argv[i]);
    const std::size_t equals = std::min(option.find('='), option.size());
    // "--user=a:b", "-ua:b", or the next argument, also of "-iu". The arguments were copied, so a
    // star too many does no harm.
    const bool isLong = option.starts_with("--");
    const bool isShort = !isLong && option.size() > 1 && option.front() == '-';
    const char kind = isLong ? KindOf(option.substr(0, equals)) : isShort ? option[1] : '\0';
    const std::size_t inside = isLong ? equals + 1 : 2;
    if ((!isLong && !isShort) || (isLong && !IsSecret(kind) && inside <= option.size())) {
      BlankPassword(argv[i] + (isLong ? inside : 0), true);
    } else if (IsSecret(kind) && inside < option.size()) {
      Blank(kind, argv[i] + inside);
    } else if (IsSecret(kind) && (isShort || equals == option.size()) && i + 1 < argc) {
      Blank(kind, argv[++i]);
    } else if (isShort && IsSecret(option.back()) && i + 1 < argc) {
      Blank(option.back(), argv[++i]);
    }
  }
}

}  // namespace netro::tool
