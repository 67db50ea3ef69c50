// Standard output and standard error, on terminals and elsewhere.

#include "terminal/Terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/System.h"

namespace netro::tool {
namespace {

int DescriptorOf(Stream stream) { return stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO; }

std::string_view CodeOf(Style style) {
  switch (style) {
    case Style::Bold:
      return "\x1b[1m";
    case Style::Dim:
      return "\x1b[2m";
    case Style::Green:
      return "\x1b[32m";
    case Style::Red:
      return "\x1b[31m";
    case Style::Cyan:
      return "\x1b[36m";
  }
  return "";
}

// The first failed write, since later ones may report something else.
int g_writeError = 0;

// Standard output is being written to, by a call that may wait for the reader.
volatile std::sig_atomic_t g_isWriting = 0;

template <class Write>
bool Writing(Write write) {
  g_isWriting = 1;
  if (!write() && g_writeError == 0) g_writeError = errno;
  g_isWriting = 0;
  return g_writeError == 0;
}

}  // namespace

void GiveUpStuckOutput() {
  if (g_isWriting != 0) DropStuckOutput();
}

bool IsTerminal(Stream stream) { return IsConsole(DescriptorOf(stream)); }

bool IsDecorated(Stream stream) {
  const char* refusal = std::getenv("NO_COLOR");
  const bool refused = refusal != nullptr && *refusal != '\0';
  return !refused && UnderstandsStyles(DescriptorOf(stream));
}

bool IsInForeground(Stream stream) { return IsOfForeground(DescriptorOf(stream)); }

int Width(Stream stream) { return SizeOf(DescriptorOf(stream)).columns; }

int Height(Stream stream) { return SizeOf(DescriptorOf(stream)).rows; }

std::string Styled(Style style, std::string_view text) {
  static const bool decorated = IsDecorated(Stream::Output);
  return decorated ? std::string(CodeOf(style)).append(text) + "\x1b[0m" : std::string(text);
}

bool Print(std::string_view text) {
  if (g_writeError != 0) return false;
  return Writing([&] { return std::fwrite(text.data(), 1, text.size(), stdout) == text.size(); });
}

bool Flush() {
  return Writing([] { return std::fflush(stdout) == 0; });
}

bool PrintForeign(std::string_view bytes) {
  if (!IsTerminal(Stream::Output) || bytes.empty()) return Print(bytes);
  const std::string text = ShownText(bytes);
  return Print(text) && (text.ends_with('\n') || Print("\n"));
}

void ShowMessage(std::string_view text) {
  Flush();
  std::string line = "netro: " + ShownText(text);
  std::ranges::replace(line, '\n', ' ');  // a message cannot pretend to be two
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

int FinishOutput(int status) {
  if (Flush()) return status;
  if (!IsLostReader(g_writeError)) {
    ShowMessage(std::string("cannot write to standard output: ") + std::strerror(g_writeError));
  }
  return status == Success ? QueryFailed : status;
}

}  // namespace netro::tool
