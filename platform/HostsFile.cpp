#include "platform/HostsFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/ConfigText.h"
#include "platform/ErrorNumbers.h"
#include "platform/SystemFiles.h"
#include "platform/WholeFile.h"
#include "support/Text.h"

namespace netro {
namespace {

// Lists of unwanted hosts make files of many megabytes.
constexpr std::size_t kLargestHostsFile = 64 << 20;
constexpr std::string_view kLocalhost = "localhost";
constexpr const char* kLoopbacks[] = {"127.0.0.1", "::1"};

// Unlike ParseDotted takes the full dotted form only, as the system does in this file.
std::optional<IpAddress> ParseFull(std::string_view text) {
  const auto address = ParseAddress(std::string(text));
  const bool full = address && (address->IsIPv6() || FormatAddress(*address) == text);
  return full ? address : std::nullopt;
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

struct HostsFile {
  std::mutex mutex;
  std::string path;
  std::uint64_t stamp = 0;
  std::shared_ptr<const std::string> text;
};

bool IsShortage(std::int32_t error) {
  return error == FileErrorNumber(EMFILE) || error == FileErrorNumber(ENFILE) ||
         error == FileErrorNumber(ENOMEM);
}

// Read again when it has changed: every lookup asks.
std::shared_ptr<const std::string> ReadHostsFile(bool* isShort = nullptr) {
  static auto* const file = new HostsFile;  // late helper threads may still ask
  const std::string path = SystemPath("etc/hosts");
  const std::uint64_t stamp = FileStamp(path);
  const std::scoped_lock lock(file->mutex);
  if (file->text == nullptr || stamp != file->stamp || path != file->path) {
    auto text = std::make_shared<std::string>();
    if (const std::int32_t error = ReadWholeFile(path, *text, kLargestHostsFile)) {
      if (isShort != nullptr) *isShort = IsShortage(error);
      return text;  // empty, and not kept
    }
    file->text = std::move(text);
    file->path = path;
    file->stamp = stamp;
  }
  return file->text;
}

}  // namespace

std::vector<IpAddress> FindHostAddresses(std::string_view hosts, std::string_view name) {
  std::vector<IpAddress> found;
  name = WithoutLastDot(name);
  while (!name.empty() && !hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    const std::string_view text = TakeWord(line);
    if (!HoldsName(line, name)) continue;
    const auto address = ParseFull(text);
    if (address && std::ranges::find(found, *address) == found.end()) found.push_back(*address);
  }
  return found;
}

std::string FindHostName(std::string_view hosts, const IpAddress& address) {
  const std::string text = FormatAddress(address);
  while (!hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    const std::string_view word = TakeWord(line);
    if (word != text && (address.IsIPv4() || ParseFull(word) != address)) continue;
    const std::string_view name = TakeWord(line);
    if (!name.empty()) return std::string(name);
  }
  return {};
}

std::vector<std::string> FindHostAliases(std::string_view hosts, std::string_view name) {
  std::vector<std::string> aliases;
  while (!hosts.empty()) {
    std::string_view line = TakeEntry(hosts);
    if (!ParseFull(TakeWord(line)) || !HoldsName(line, name)) continue;
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
  return FindHostAliases(*ReadHostsFile(), name);
}

std::vector<IpAddress> HostsFileAddresses(std::string_view name, bool* isShort) {
  std::vector<IpAddress> found = FindHostAddresses(*ReadHostsFile(isShort), name);
  if (!IsLocalhost(WithoutLastDot(name))) return found;
  for (const char* loopback : kLoopbacks) {
    const IpAddress address = *ParseAddress(loopback);
    const auto same = [&](const IpAddress& other) { return other.Family() == address.Family(); };
    if (std::ranges::none_of(found, same)) found.push_back(address);
  }
  return found;
}

std::string HostsFileName(const IpAddress& address, bool* isShort) {
  std::string found = FindHostName(*ReadHostsFile(isShort), address);
  const std::string text = FormatAddress(address);
  const auto same = [&](const char* loopback) { return text == loopback; };
  if (found.empty() && std::ranges::any_of(kLoopbacks, same)) found = kLocalhost;
  return found;
}

}  // namespace netro
