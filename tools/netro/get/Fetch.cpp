// One URL of "netro get".

#include "get/Fetch.h"

#include <netro/Localization.h>

#include <filesystem>
#include <set>
#include <string_view>

#include "get/BodyFile.h"
#include "get/UrlText.h"
#include "terminal/Command.h"

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

void CheckOutput(const GetOptions& options) {
  if (!options.outputFolder.empty() && !IsFolder(options.outputFolder)) {
    throw UsageError("--output-dir: " + options.outputFolder + " is no folder");
  }
  if (!options.output.empty() && options.urls.size() > 1) {
    throw UsageError("--output: one file cannot take the bodies of " +
                     std::to_string(options.urls.size()) +
                     " URLs; --output-dir saves each in a file of its own");
  }
}

void Prepare(HTTPCls& http, const Fetch& fetch, const GetRequest& request) {
  http.URL(fetch.url);
  http.QueryType(request.method);
  http.PostData(request.body);
  for (const auto& [name, value] : request.headers) http.AddHeader(name, value);
  http.HTTPToken(request.token);
  http.User(request.user);
  http.Password(request.password);
  http.SendAuthAfterChallenge(request.answerChallenges &&
                              (!request.user.empty() || HasCredentials(fetch.url)));
  http.StandardDigest(true);
  http.ProxyType(request.proxy.type);
  http.ProxyURL(request.proxy.host);
  http.ProxyPort(request.proxy.port);
  http.ProxyUser(request.proxy.user);
  http.ProxyPassword(request.proxy.password);
  http.ProxyUseRemoteDNS(request.proxy.remoteDns);
  http.DNSURL(request.dns);
  http.AddressPreference(request.preference);
  http.TimeOutSeconds(request.timeout);
  http.RemoveChunkHeader(!request.keepChunks);
  if (!fetch.file.empty() && CanBeReplaced(fetch.file)) {
    http.Filename(fetch.file);
    http.SaveAsFile(true);
  }
}

/// A line has few columns; all begin alike.
std::string LineLabel(const Fetch& fetch) {
  constexpr std::string_view kScheme = "http://";
  return fetch.label.substr(fetch.label.starts_with(kScheme) ? kScheme.size() : 0);
}

Progress ProgressOf(const HTTPCls& http) {
  const double header = http.HeaderLen() == 0 ? 0 : http.HeaderLen() + 4;
  return {http.ReceivedBytes() - header, http.WaitForDataLen()};
}

}  // namespace

std::vector<Fetch> PlanFetches(const GetOptions& options) {
  constexpr std::int32_t kCancelled = 9999;
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
    fetch.result.errorNumber = kCancelled;
    fetch.result.errorText = GetMessageText(kCancelled);
  }
  return fetches;
}

void Perform(Fetch& fetch, const GetRequest& request, ProgressLines& lines) {
  HTTPCls http;
  Prepare(http, fetch, request);
  const ProgressLines::Line line(lines, LineLabel(fetch), [&http] { return ProgressOf(http); });
  fetch.result = Query(http);
}

}  // namespace netro::tool
