// Passwords that do not stand in the command line, and those that do.

#include "terminal/Secret.h"

#include <strings.h>
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
#include "terminal/System.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

std::string AskProgram() {
  for (const char* name : {"NETRO_ASKPASS", "SSH_ASKPASS"}) {
    const char* const program = std::getenv(name);
    if (program != nullptr && *program != '\0') return program;
  }
  return {};
}

bool IsAtTerminal() { return IsConsole(STDIN_FILENO) && IsTerminal(Stream::Error); }

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
    const std::optional<std::string> answer = RunAskProgram(program, question);
    if (!answer) throw UsageError(program + " gave no password");
    return answer->substr(0, answer->find_first_of("\r\n"));
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
