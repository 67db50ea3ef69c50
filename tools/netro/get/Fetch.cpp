// One URL of "netro get".

#include "get/Fetch.h"

#include <netro/Localization.h>

#include <filesystem>
#include <set>
#include <system_error>

#include "get/UrlText.h"
#include "terminal/Command.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

namespace fs = std::filesystem;

bool IsFolder(const std::string& name) {
  std::error_code error;
  return fs::is_directory(name, error);
}

/// The body's place; `taken` are the names of those before.
std::string FileFor(const std::string& url, const GetOptions& options,
                    std::set<std::string>& taken) {
  if (options.outputFolder.empty()) return options.output;
  const std::string name = FileNameOf(url);
  std::string unique = name;
  for (int number = 1; !taken.insert(unique).second; ++number) {
    unique = name + "." + std::to_string(number);
  }
  return (fs::path(options.outputFolder) / unique).string();
}

/// On a terminal it must be text, and beside others it has to wait for its turn.
bool CanStream(const GetOptions& options) {
  return options.urls.size() == 1 && !options.json && !options.include && !options.request.head &&
         !IsTerminal(Stream::Output);
}

void CheckOutput(const GetOptions& options) {
  if (!options.outputFolder.empty() && !IsFolder(options.outputFolder)) {
    throw UsageError("--output-dir: " + options.outputFolder + " is no folder");
  }
  const bool toFile = !options.output.empty() || !options.outputFolder.empty();
  if (toFile && (options.request.head || options.request.method == "HEAD")) {
    throw UsageError("the answer to a HEAD request has no body for --output");
  }
  if (!options.output.empty() && options.urls.size() > 1) {
    throw UsageError("--output: one file cannot take the bodies of " +
                     std::to_string(options.urls.size()) +
                     " URLs; --output-dir saves each in a file of its own");
  }
}

}  // namespace

std::vector<Fetch> PlanFetches(const GetOptions& options, const Way& way) {
  CheckOutput(options);
  std::vector<Fetch> fetches;
  std::set<std::string> taken;
  for (const std::string& url : options.urls) {
    Fetch& fetch = fetches.emplace_back();
    fetch.url = url;
    if (options.urls.size() > 1) fetch.label = WithoutCredentials(url);
    fetch.file = FileFor(url, options, taken);
    if (!fetch.file.empty() && IsFolder(fetch.file)) {
      const std::string option = options.outputFolder.empty() ? "--output: " : "--output-dir: ";
      throw UsageError(option + fetch.file + " is a folder");
    }
    fetch.isStreamed = CanStream(options) && fetch.file.empty();
    fetch.proxy = ProxyFor(way, url);
    fetch.result = CancelledResult();
  }
  return fetches;
}

HttpResult CancelledResult() {
  constexpr std::int32_t kCancelled = 9999;
  HttpResult result;
  result.errorNumber = kCancelled;
  result.errorText = GetMessageText(kCancelled);
  return result;
}

}  // namespace netro::tool
