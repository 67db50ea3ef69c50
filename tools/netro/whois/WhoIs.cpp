// "netro whois": a question to a WHOIS server with WhoIsCls, and to those that it refers to.

#include "whois/WhoIs.h"

#include <netro/WhoIsCls.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "terminal/Interrupt.h"
#include "terminal/OptionValues.h"
#include "whois/WhoIsOptions.h"
#include "whois/WhoIsOutput.h"

namespace netro::tool {
namespace {

void Prepare(WhoIsCls& client, const WhoIsRequest& request) {
  client.Timeout(TimeOf(request.connection.timeout));
  client.TotalTimeout(TimeOf(request.total));
  client.Port(request.port);
  client.Follow(request.follow);
  client.FollowPrivate(request.followPrivate);
  client.ServerTable(request.table);
  UseConnection(client, request.connection, request.proxy);
}

int RunWhoIs(const WhoIsOptions& options) {
  const WhoIsRequest request = ReadWhoIsRequest(options);
  WhoIsPrinter printer(request.follow);
  WhoIsCls client;
  Prepare(client, request);
  client.AnswerSink([&](const WhoIsAnswer& answer) {
    if (!options.json) printer.Print(answer);
    ExplainWhoIs(answer, request);
  });
  {
    const InterruptGuard guard(client);
    client.WhoIs(request.host, request.name);
  }
  if (options.json) PrintWhoIsJson(request, client);
  if (client.Answers().empty()) ExplainRefusal(client);
  return client.LastErr() == 0 ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpWhoIs(CLI::App& options) {
  const auto values = std::make_shared<WhoIsOptions>();
  DeclareWhoIsOptions(options, *values);
  return [values] { return RunWhoIs(*values); };
}

}  // namespace netro::tool
