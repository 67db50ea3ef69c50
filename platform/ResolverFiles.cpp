// The configuration of the resolver where it is kept in files.
#include <algorithm>
#include <optional>
#include <utility>

#include "platform/ResolverConfig.h"
#include "platform/SystemFiles.h"
#include "platform/WholeFile.h"

namespace netro {
namespace {

constexpr std::size_t kLargestConfig = 1 << 20;

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

std::uint64_t ResolverFilesStamp() {
  return FileStamp(SystemPath("etc/resolv.conf")) * 3 +
         FileStamp(SystemPath("run/systemd/resolve/resolv.conf"));
}

ResolverConfig ReadResolverFiles() {
  ResolverConfig config = ReadFrom("etc/resolv.conf").value_or(ResolverConfig());
  if (!NamesOnlyTheStub(config)) return config;
  auto behind = ReadFrom("run/systemd/resolve/resolv.conf");
  if (!behind || behind->servers.empty()) return config;
  if (behind->domain.empty()) behind->domain = std::move(config.domain);
  return *std::move(behind);
}

}  // namespace netro
