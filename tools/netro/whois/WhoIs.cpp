// "netro whois": a question to a WHOIS server with WhoIsCls, and to those that it refers to.

#include "whois/WhoIs.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>
#include <vector>

#include "whois/WhoIsOptions.h"
#include "whois/WhoIsOutput.h"
#include "whois/WhoIsResult.h"

namespace netro::tool {
namespace {

int RunWhoIs(const WhoIsOptions& options) {
  const WhoIsRequest request = ReadWhoIsRequest(options);
  WhoIsPrinter printer(request.follow);
  std::vector<WhoIsAnswer> answers;
  bool good = true;
  AskWhoIsServers(request, [&](WhoIsAnswer answer) {
    good = good && answer.errorNumber == 0;
    if (!options.json) printer.Print(answer);
    ExplainWhoIs(answer, request);
    if (options.json) answers.push_back(std::move(answer));
  });
  if (options.json) PrintWhoIsJson(request, answers);
  return good ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpWhoIs(CLI::App& options) {
  const auto values = std::make_shared<WhoIsOptions>();
  DeclareWhoIsOptions(options, *values);
  return [values] { return RunWhoIs(*values); };
}

}  // namespace netro::tool
