// "netro dns": questions with QueryDNSCLS.

#include "dns/Dns.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "dns/DnsLookup.h"
#include "dns/DnsOptions.h"
#include "dns/DnsOutput.h"

namespace netro::tool {
namespace {

int RunDns(const DnsOptions& options) {
  std::vector<std::unique_ptr<DnsLookup>> lookups;
  for (DnsRequest& request : ReadDnsRequests(options)) {
    lookups.push_back(std::make_unique<DnsLookup>(std::move(request)));
  }
  DnsOutput output(options.json, options.brief, lookups.size());
  Batch batch(options.parallel);
  const auto show = [&](std::size_t i) {
    const bool isRead = output.Show(*lookups[i]);
    lookups[i].reset();  // which may hold a whole zone
    return isRead;
  };
  const std::size_t begun = batch.Run(
      lookups.size(), [&](std::size_t i) { Resolve(*lookups[i], batch); }, show);
  output.Finish(std::span(lookups).subspan(begun));
  return output.AreAllGood() ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpDns(CLI::App& options) {
  const auto values = std::make_shared<DnsOptions>();
  DeclareDnsOptions(options, *values);
  return [values] { return RunDns(*values); };
}

}  // namespace netro::tool
