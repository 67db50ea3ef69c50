#include "platform/HostsFile.h"

#include <algorithm>

#include "platform/Sockets.h"
#include "platform/SystemFiles.h"
#include "platform/WholeFile.h"
#include "platform/linux/ConfigText.h"
#include "support/Text.h"

namespace netro {
namespace {

// Lists of unwanted hosts make files of many megabytes.
constexpr std::size_t kLargestHostsFile = 64 << 20;
constexpr std::string_view kLocalhost = "localhost";
constexpr std::string_view kLoopback = "127.0.0.1";

// Unlike ParseDotted takes the full form only, as the system does in this file.
std::optional<std::int32_t> ParseFullDotted(std::string_view text) {
  const auto ip = ParseDotted(std::string(text));
  return ip && FormatDotted(*ip) == text ? ip : std::nullopt;
}

std::string_view TakeEntry(std::string_view& hosts) {
  const std::string_view line = TakeLine(hosts);
  return line.substr(0, line.find('#'));
}

bool HoldsName(std::string_view names, std::string_view name) {
  for (auto word = TakeWord(names); !word.empty(); word = TakeWord(names)) {
    if (EqualsIgnoreCase(word, name)) return true;
  }
  return false;
}

bool IsLocalhost(std::string_view name) {
  if (name.size() <= kLocalhost.size()) return EqualsIgnoreCase(name, kLocalhost);
  const std::size_t labels = name.size() - kLocalhost.size();
  return name[labels - 1] == '.' && EqualsIgnoreCase(name.substr(labels), kLocalhost);
}

std::string ReadHostsFile() {
  std::string text;
  if (ReadWholeFile(SystemPath("etc/hosts"), text, kLargestHostsFile) != 0) text.clear();
  return text;
}

}  // namespace

std::optional<std::int32_t> FindHostAddress(std::string_view hosts, std::string_view name) {
  name = WithoutLastDot(name);
  if (name.empty()) return std::nullopt;
  while (!hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    const std::string_view address = TakeWord(line);
    if (!HoldsName(line, name)) continue;
    if (const auto ip = ParseFullDotted(address)) return ip;
  }
  return std::nullopt;
}

std::string FindHostName(std::string_view hosts, std::int32_t ip) {
  const std::string wanted = FormatDotted(ip);
  while (!hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    if (TakeWord(line) != wanted) continue;
    const std::string_view name = TakeWord(line);
    if (!name.empty()) return std::string(name);
  }
  return {};
}

std::vector<std::string> FindHostAliases(std::string_view hosts, std::string_view name) {
  std::vector<std::string> aliases;
  while (!hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    if (!ParseFullDotted(TakeWord(line)) || !HoldsName(line, name)) continue;
    for (auto word = TakeWord(line); !word.empty(); word = TakeWord(line)) {
      const auto same = [&](const std::string& alias) { return EqualsIgnoreCase(alias, word); };
      if (!EqualsIgnoreCase(word, name) && std::ranges::none_of(aliases, same)) {
        aliases.emplace_back(word);
      }
    }
  }
  return aliases;
}

std::vector<std::string> HostsFileAliases(std::string_view name) {
  return FindHostAliases(ReadHostsFile(), name);
}

std::optional<std::int32_t> HostsFileAddress(std::string_view name) {
  const auto found = FindHostAddress(ReadHostsFile(), name);
  if (found || !IsLocalhost(WithoutLastDot(name))) return found;
  return ParseFullDotted(kLoopback);
}

std::string HostsFileName(std::int32_t ip) {
  std::string found = FindHostName(ReadHostsFile(), ip);
  if (found.empty() && FormatDotted(ip) == kLoopback) found = kLocalhost;
  return found;
}

}  // namespace netro
