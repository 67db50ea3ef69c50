// Passwords that do not stand in the command line, and those that do.

#include "get/Secret.h"

#include <fcntl.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
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

void Overwrite(char* from, std::size_t size) { std::memset(from, '*', size); }

// "user:password" keeps its user, "user:password@host" its host too.
void BlankPassword(char* text, bool isUrl) {
  char* begin = text;
  if (char* scheme = std::strstr(text, "://"); isUrl && scheme != nullptr) begin = scheme + 3;
  const std::string_view rest(begin);
  const std::size_t authority = isUrl ? std::min(rest.find_first_of("/?#"), rest.size()) : rest.size();
  const std::size_t at = rest.substr(0, authority).rfind('@');
  if (isUrl && at == rest.npos) return;
  const std::size_t end = isUrl ? at : rest.size();
  const std::size_t colon = rest.find(':');
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

bool IsSecret(char kind) { return kind == 'u' || kind == 'x' || kind == 'H'; }

void Blank(char kind, char* value) {
  if (kind == 'H') return BlankField(value);
  BlankPassword(value, kind == 'x');
}

}  // namespace

std::string AskPassword(const std::string& question) {
  const SilentTerminal terminal;
  if (!terminal.IsOpen()) throw UsageError("there is no terminal to ask for a password on");
  terminal.Write(question);
  const std::optional<std::string> password = terminal.ReadLine();
  terminal.Write("\n");
  if (!password) throw UsageError("no password was given");
  return *password;
}

std::string ReadPasswordFile(const std::string& option, const std::string& file) {
  std::string text = ReadInput(option, file);
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
    if (!isLong && !isShort) {
      BlankPassword(argv[i], true);
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
