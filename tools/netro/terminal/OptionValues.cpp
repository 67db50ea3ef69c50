// Reading of option values that several subcommands have.

#include "terminal/OptionValues.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/SecondsText.h"

namespace netro::tool {
namespace {

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
  const std::size_t end = text.find_last_not_of(" \t") + 1;
  return text.substr(begin, end - begin);
}

}  // namespace

std::string ReadInput(const std::string& option, const std::string& name) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      name == "-" ? stdin : std::fopen(name.c_str(), "rb"), std::fclose);
  std::string content;
  if (file != nullptr) {
    char block[65536];
    errno = 0;
    while (const std::size_t size = std::fread(block, 1, sizeof block, file.get())) {
      content.append(block, size);
    }
  }
  if (file == nullptr || std::ferror(file.get()) != 0) {
    throw UsageError(option + ": cannot read " + name + ": " + std::strerror(errno));
  }
  return content;
}

std::pair<std::string, std::string> ReadHeader(const std::string& line) {
  const std::size_t colon = line.find(':');
  if (colon == 0 || colon == line.npos) {
    throw UsageError("--header: \"" + line + "\" is not of the form \"Name: value\"");
  }
  const std::string_view value = std::string_view(line).substr(colon + 1);
  return {line.substr(0, colon), std::string(Trimmed(value))};
}

void CheckRange(const std::string& option, std::int32_t value, std::int32_t least,
                std::int32_t most) {
  if (value < least || value > most) {
    throw UsageError(option + ": " + std::to_string(least) + " to " + std::to_string(most) +
                     " are possible");
  }
}

void CheckSeconds(const std::string& option, double seconds, double shortest) {
  constexpr double kLongest = 3600;
  if (seconds >= shortest && seconds <= kLongest) return;  // not true for NaN
  char range[64];
  std::snprintf(range, sizeof range, "%g to %g seconds are possible", shortest, kLongest);
  throw UsageError(option + ": " + range);
}

void CheckLimit(const std::string& option, double seconds, double longest, NoLimit zero) {
  constexpr double kShortest = 0.01;
  if (seconds >= kShortest && seconds <= longest) return;  // not true for NaN
  if (seconds == 0 && zero == NoLimit::Zero) return;
  throw UsageError(option + ": " + (zero == NoLimit::Zero ? "0 (no limit) or " : "") +
                   SecondsText(kShortest) + " to " + SecondsText(longest) +
                   " seconds are possible");
}

std::chrono::milliseconds TimeOf(double seconds) {
  return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

}  // namespace netro::tool
