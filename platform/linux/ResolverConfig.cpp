#include "platform/ResolverConfig.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "platform/Sockets.h"
#include "platform/SystemFiles.h"
#include "platform/WholeFile.h"
#include "platform/linux/ConfigText.h"

namespace netro {
namespace {

constexpr std::size_t kLargestConfig = 1 << 20;

void TakeSetting(std::string_view line, ResolverConfig& config) {
  line = line.substr(0, line.find_first_of("#;"));
  if (line.empty() || IsConfigBlank(line.front())) return;
  const std::string_view keyword = TakeWord(line);
  const std::string_view value = TakeWord(line);
  if (value.empty()) return;
  if (keyword == "domain" || keyword == "search") {
    config.domain = WithoutLastDot(value);
  } else if (keyword == "nameserver") {
    if (const auto ip = ParseDotted(std::string(value)))
      config.servers.push_back(FormatDotted(*ip));
  }
}

std::optional<ResolverConfig> ReadFrom(std::string_view file) {
  std::string text;
  if (ReadWholeFile(SystemPath(file), text, kLargestConfig) != 0) return std::nullopt;
  return ParseResolverConfig(text);
}

bool NamesOnlyTheStub(const ResolverConfig& config) {
  return !config.servers.empty() &&
         std::ranges::all_of(config.servers, [](const std::string& server) {
           return server == "127.0.0.53" || server == "127.0.0.54";
         });
}

}  // namespace

ResolverConfig ParseResolverConfig(std::string_view text) {
  ResolverConfig config;
  config.readable = true;
  while (!text.empty()) TakeSetting(TakeLine(text), config);
  return config;
}

ResolverConfig ReadResolverConfig() {
  ResolverConfig config = ReadFrom("etc/resolv.conf").value_or(ResolverConfig());
  if (!NamesOnlyTheStub(config)) return config;
  auto behind = ReadFrom("run/systemd/resolve/resolv.conf");
  if (!behind || behind->servers.empty()) return config;
  if (behind->domain.empty()) behind->domain = std::move(config.domain);
  return *std::move(behind);
}

}  // namespace netro
