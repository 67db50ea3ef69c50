// The options of "netro trace".

#include "trace/TraceOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/FamilyOptions.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kMostProbes = 10;
constexpr std::int32_t kMostHops = 255;
constexpr std::int32_t kLargestSize = 65507;
constexpr std::int32_t kMostCycles = 1'000'000;
constexpr std::int32_t kHighestPort = 65'535;
constexpr double kShortestInterval = 0.05;

constexpr const char* kExamples = R"(
Examples:
  netro trace example.com
  netro trace 192.0.2.1 --numeric --probes 1 --timeout 1
  netro trace -6 example.com
  netro trace --live example.com
  netro trace --report --cycles 20 example.com
  netro trace --tcp --port 443 example.com

All hops are asked together, so that the whole takes as long as its slowest hop. A hop is printed
when it and all hops before it are known: "*" is a probe without an answer, loss is their share.
Routers with several addresses have a line for each. The trace ends at the destination, and where a
router says that it goes no further. When the destination has answered, the others are waited for a
second, or five times the slowest round trip; names that take more than a second are left out.

--live asks every hop once a second until Ctrl-C, and shows loss, times and all addresses of each, the
MPLS labels that routers tell, and names as they come; on what is no terminal the table comes at the
end. --report prints it after so many cycles. --udp and --tcp ask with other packets, which take no
permission; a destination that refuses them has answered.

Exit status 0 when the destination has answered. Echo requests need a permission of the system,
which is named when it is missing.

--json prints one object: host, address, ok, socket ("datagram", "raw" or null), interrupted, error
(number and text; 0 when the destination has answered), seconds, timeout, size, and the list hops:
hop, loss_percent, hosts (address and name of each that has answered), and probes: status (0 a reply,
11013 a router's word that the time to live was used up, 11010 silence), text, from, ms, labels (label,
class, bottom, ttl). With --live and --report, cycles, and for each hop sent, received, last_ms, avg_ms,
best_ms, worst_ms, deviation_ms as well. What is not known is null.)";

void DeclareKindOfProbes(CLI::App& options, TraceOptions& values) {
  constexpr const char* kGroup = "Probes";
  CLI::Option* udp = options.add_flag_callback(
      "-u,--udp", [&values] { values.probe = EchoProbeUDP; }, "Ask with UDP datagrams");
  CLI::Option* tcp = options.add_flag_callback(
      "-T,--tcp", [&values] { values.probe = EchoProbeTCP; }, "Ask with TCP connections");
  udp->group(kGroup);
  tcp->group(kGroup)->excludes(udp);
  options
      .add_option("-p,--port", values.port, "Their port; 33434 for UDP and 80 for TCP if not given")
      ->type_name("PORT")
      ->group(kGroup);
}

void DeclareCycles(CLI::App& options, TraceOptions& values) {
  constexpr const char* kGroup = "Output";
  CLI::Option* live =
      options.add_flag("-l,--live", values.live, "Show a table that goes on until Ctrl-C");
  live->group(kGroup);
  options.add_flag("-r,--report", values.report, "Print the same table after some cycles")
      ->excludes(live)
      ->group(kGroup);
  options
      .add_option("-c,--cycles", values.cycles,
                  "Cycles of --live (no end if not given) and --report (10)")
      ->type_name("COUNT")
      ->group(kGroup);
  options
      .add_option("-i,--interval", values.interval,
                  "Time from one cycle to the next; 1 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
}

}  // namespace

void DeclareTraceOptions(CLI::App& options, TraceOptions& values) {
  constexpr const char* kProbes = "Probes";
  constexpr const char* kNames = "Names";
  options.add_option("HOST", values.host, "Name or address of the destination")->required();
  options.add_option("-q,--probes", values.probes, "Probes for each hop; 3 if not given")
      ->type_name("COUNT")
      ->group(kProbes);
  options.add_option("-m,--max-hops", values.maxHops, "The most hops to ask; 30 if not given")
      ->type_name("COUNT")
      ->group(kProbes);
  options.add_option("-s,--size", values.size, "Bytes of data in a probe; 32 if not given")
      ->type_name("BYTES")
      ->group(kProbes);
  options.add_option("-t,--timeout", values.timeout, "Limit of each probe; 5 if not given")
      ->type_name("SECONDS")
      ->group(kProbes);
  DeclareKindOfProbes(options, values);
  options.add_flag("-n,--numeric", values.numeric, "Do not look up the names of the hops")
      ->group(kNames);
  options.add_option("--dns", values.dns, "DNS servers to ask, as host[:port],host[:port]")
      ->type_name("SERVERS")
      ->group(kNames);
  DeclareFamilyOptions(options, values.preference, kProbes);
  DeclareCycles(options, values);
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group("Output");
  options.footer(kExamples);
}

void CheckTraceOptions(const TraceOptions& options) {
  CheckHost(options.host);
  CheckRange("--probes", options.probes, 1, kMostProbes);
  CheckRange("--max-hops", options.maxHops, 1, kMostHops);
  CheckRange("--size", options.size, 0, kLargestSize);
  CheckSeconds("--timeout", options.timeout);
  CheckSeconds("--interval", options.interval, kShortestInterval);
  CheckRange("--cycles", options.cycles, 0, kMostCycles);
  if (options.cycles != 0 && !options.live && !options.report) {
    throw UsageError("--cycles belongs to --live or --report");
  }
  CheckRange("--port", options.port, 0, kHighestPort);
  if (options.port != 0 && options.probe == EchoProbeICMP) {
    throw UsageError("--port belongs to --udp or --tcp");
  }
}

}  // namespace netro::tool
