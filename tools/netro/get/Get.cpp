// "netro get": one HTTP request with HTTPCls.

#include "get/Get.h"

#include <netro/HTTPCls.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "get/GetOptions.h"
#include "get/GetOutput.h"
#include "get/HttpResult.h"
#include "terminal/Interrupt.h"
#include "terminal/ProgressLines.h"

namespace netro::tool {
namespace {

/// "-o -" is standard output, which is the default.
void Normalise(GetOptions& options) {
  if (options.output == "-") options.output.clear();
}

void Prepare(HTTPCls& http, const GetOptions& options, const GetRequest& request) {
  http.URL(options.url);
  http.QueryType(request.method);
  http.PostData(request.body);
  for (const auto& [name, value] : request.headers) http.AddHeader(name, value);
  http.HTTPToken(options.token);
  http.User(request.user);
  http.Password(request.password);
  http.SendAuthAfterChallenge(request.answerChallenges);
  http.ProxyType(request.proxy.type);
  http.ProxyURL(request.proxy.host);
  http.ProxyPort(request.proxy.port);
  http.ProxyUser(request.proxy.user);
  http.ProxyPassword(request.proxy.password);
  http.ProxyUseRemoteDNS(request.proxy.remoteDns);
  http.DNSURL(options.dns);
  http.TimeOutSeconds(options.timeout);
  http.RemoveChunkHeader(!options.keepChunks);
  if (!options.output.empty() && CanBeReplaced(options.output)) {
    http.Filename(options.output);
    http.SaveAsFile(true);
  }
}

/// The query with everything around it that a user sees while it runs.
HttpResult RunQuery(HTTPCls& http) {
  const InterruptGuard guard(http);
  ProgressLines lines;
  const ProgressLines::Line line(lines, "", [&http] {
    const double header = http.HeaderLen() == 0 ? 0 : http.HeaderLen() + 4;
    return Progress{http.ReceivedBytes() - header, http.WaitForDataLen()};
  });
  return Query(http);
}

int RunGet(GetOptions& options) {
  Normalise(options);
  const GetRequest request = ReadGetRequest(options);
  HTTPCls http;
  Prepare(http, options, request);

  const HttpResult result = RunQuery(http);
  ShowResult(result, options);
  return result.IsGood() ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpGet(CLI::App& options) {
  const auto values = std::make_shared<GetOptions>();
  DeclareGetOptions(options, *values);
  return [values] { return RunGet(*values); };
}

}  // namespace netro::tool
