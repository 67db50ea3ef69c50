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
#include "dns/DnsTrace.h"
#include "dns/DnsTraceOutput.h"

namespace netro::tool {
namespace {

/// `Question` is DnsLookup or DnsTrace.
template <class Question, class Output>
int RunAll(const DnsOptions& options, void (*perform)(Question&, const Batch&)) {
  std::vector<std::unique_ptr<Question>> questions;
  for (DnsRequest& request : ReadDnsRequests(options)) {
    questions.push_back(std::make_unique<Question>(std::move(request)));
  }
  Output output(options.json, options.brief, questions.size());
  Batch batch(options.parallel);
  const auto show = [&](std::size_t i) {
    const bool isRead = output.Show(*questions[i]);
    questions[i].reset();  // which may hold a whole zone
    return isRead;
  };
  const std::size_t begun = batch.Run(
      questions.size(), [&](std::size_t i) { perform(*questions[i], batch); }, show);
  output.Finish(std::span(questions).subspan(begun));
  return output.AreAllGood() ? Success : QueryFailed;
}

int RunDns(const DnsOptions& options) {
  return options.trace ? RunAll<DnsTrace, DnsTraceOutput>(options, Follow)
                       : RunAll<DnsLookup, DnsOutput>(options, Resolve);
}

}  // namespace

CommandRun SetUpDns(CLI::App& options) {
  const auto values = std::make_shared<DnsOptions>();
  DeclareDnsOptions(options, *values);
  return [values] { return RunDns(*values); };
}

}  // namespace netro::tool
