// "netro dns": one question with QueryDNSCLS.

#include "dns/Dns.h"

#include <netro/QueryDNSCLS.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "dns/DnsOptions.h"
#include "dns/DnsOutput.h"
#include "dns/DnsResult.h"

namespace netro::tool {
namespace {

int RunDns(const DnsOptions& options) {
  const DnsRequest request = ReadDnsRequest(options);
  QueryDNSCLS query;
  const DnsResult result = Resolve(query, request);
  if (options.json) {
    PrintDnsJson(query, result);
  } else {
    PrintDnsReply(query, result, request);
  }
  ExplainDnsResult(query, result, request);
  return result.errorNumber == 0 ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpDns(CLI::App& options) {
  const auto values = std::make_shared<DnsOptions>();
  DeclareDnsOptions(options, *values);
  return [values] { return RunDns(*values); };
}

}  // namespace netro::tool
