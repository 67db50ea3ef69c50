// netro_bench: speed and memory of the library beside libcurl, Asio, c-ares, fping and GMime, in one
// run and against the same local servers. See README.md in this folder.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "bench/Cases.h"
#include "bench/DnsCases.h"
#include "bench/DnsServers.h"
#include "bench/EchoCases.h"
#include "bench/HttpCases.h"
#include "bench/HttpServers.h"
#include "bench/LogCases.h"
#include "bench/LookupCases.h"
#include "bench/MailCases.h"
#include "bench/MimeCases.h"
#include "bench/PingCases.h"
#include "bench/Process.h"
#include "bench/TaskCases.h"
#include "bench/TextCases.h"
#include "bench/TimeCases.h"
#include "bench/WaitCases.h"
#include "bench/WatchCases.h"
#include "bench/WhoIsCases.h"

namespace {

/// Says which case is done; the figures come in the table at the end (or with --benchmark_out).
class ProgressReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override {
    PrintBasicContext(&std::cerr, context);
    return true;
  }
  void ReportRuns(const std::vector<Run>& runs) override {
    if (!runs.empty() && runs.front().run_type == Run::RT_Iteration) {
      std::fprintf(stderr, "done: %s\n", runs.front().run_name.function_name.c_str());
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  // Three runs of each case in mixed order: what else the machine does then hits all alike.
  std::vector<std::string> words = {argv[0], "--benchmark_repetitions=3",
                                    "--benchmark_enable_random_interleaving=true"};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return 2;
  }

  const std::uint64_t descriptors = netro::bench::RaiseDescriptorLimit();
  netro::bench::HttpServers servers;
  netro::bench::AddHttpCases(servers);
  netro::bench::AddEchoCases(descriptors);
  netro::bench::AddTaskCases(descriptors);
  netro::bench::AddWaitCases();
  const netro::bench::DnsServers dnsServers;
  netro::bench::AddDnsCases(dnsServers);
  netro::bench::AddLookupCases(servers.Folder());
  netro::bench::AddTimeCases();
  netro::bench::AddWhoIsCases();
  netro::bench::AddPingCases();
  netro::bench::AddLogCases();
  netro::bench::AddWatchCases();
  netro::bench::AddMimeCases();
  netro::bench::AddMailCases();
  netro::bench::AddTextCases();
  ProgressReporter progress;
  benchmark::RunSpecifiedBenchmarks(&progress);
  netro::bench::PrintTable();
}
