#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <windows.h>

#include <string_view>

#include "terminal/Command.h"
#include "terminal/System.h"

namespace netro::tool {
namespace {

constexpr int kStandardOutput = 1;
constexpr char kControlC = '\3';

/// The console's own end of both directions, wherever the standard streams go.
class Console {
 public:
  explicit Console(const wchar_t* name)
      : handle_(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, 0, nullptr)) {
    hadMode_ = GetConsoleMode(handle_, &before_) != 0;
  }
  ~Console() {
    if (hadMode_) SetConsoleMode(handle_, before_);
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
  }
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  bool IsOpen() const { return hadMode_; }
  void Silence() { SetConsoleMode(handle_, 0); }
  void Write(std::string_view text) const {
    DWORD written = 0;
    WriteFile(handle_, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
  bool Read(char& c) const {
    DWORD got = 0;
    return ReadFile(handle_, &c, 1, &got, nullptr) != 0 && got == 1;
  }

 private:
  const HANDLE handle_;
  DWORD before_ = 0;
  bool hadMode_ = false;
};

/// None when Ctrl-C was typed. Nothing but this edits the line.
std::optional<std::string> ReadLine(const Console& console) {
  std::string line;
  for (char c = 0; console.Read(c) && c != '\r' && c != '\n';) {
    if (c == kControlC) return std::nullopt;
    if (c != '\b') {
      line += c;
    } else if (!line.empty()) {
      line.pop_back();
    }
  }
  return line;
}

/// As programs take their command line apart: backslashes count before a quotation mark only.
std::string Quoted(std::string_view argument) {
  std::string quoted = "\"";
  std::size_t slashes = 0;
  for (const char c : argument) {
    if (c == '"') quoted.append(slashes + 1, '\\');
    slashes = c == '\\' ? slashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(slashes, '\\') + '"';
}

std::string ReadToEnd(int descriptor) {
  std::string text;
  char block[4096];
  for (int got = 0; (got = _read(descriptor, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace

std::optional<std::string> ReadSilently(const std::string& question) {
  Console input(L"CONIN$");
  const Console output(L"CONOUT$");
  if (!input.IsOpen() || !output.IsOpen()) {
    throw UsageError("there is no terminal to ask for a password on");
  }
  input.Silence();
  output.Write(question);
  std::optional<std::string> password = ReadLine(input);
  output.Write("\r\n");
  return password;
}

std::optional<std::string> RunAskProgram(const std::string& program, const std::string& question) {
  int ends[2];
  if (_pipe(ends, 4096, _O_BINARY | _O_NOINHERIT) != 0) return std::nullopt;
  const int before = _dup(kStandardOutput);
  _dup2(ends[1], kStandardOutput);  // which the program inherits
  _close(ends[1]);
  const std::intptr_t process = _spawnlp(_P_NOWAIT, program.c_str(), Quoted(program).c_str(),
                                         Quoted(question).c_str(), nullptr);
  _dup2(before, kStandardOutput);
  _close(before);
  std::string text = process != -1 ? ReadToEnd(ends[0]) : std::string();
  _close(ends[0]);
  int status = -1;
  if (process != -1) _cwait(&status, process, 0);
  if (status != 0) return std::nullopt;
  return text;
}

}  // namespace netro::tool
