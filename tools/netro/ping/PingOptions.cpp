// The options of "netro ping".

#include "ping/PingOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/FamilyOptions.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kLargestSize = 65507;
constexpr double kShortest = 0.001;

constexpr const char* kExamples = R"(
Examples:
  netro ping example.com
  netro ping -c 0 -i 0.2 192.0.2.1
  netro ping -c 1 -w 0.5 --alive 192.0.2.0/24
  netro ping -f hosts.txt
  netro ping -6 example.com
  netro ping fe80::1%eth0

All hosts are asked at the same time. Up to five get a line for each reply, and a few lines of
statistics; more get a table with a line each at the end. Ctrl-C ends the command with the
statistics so far; so does --deadline. A request without an answer by then counts as "not awaited",
not as lost. A network is all its hosts, 65,536 at most. A reply that comes again is a duplicate and
counts apart; "Packet Filtered" is a firewall's word.
Exit status 0 when every host has answered at least once.

An ordinary program may send no echo. It takes a group of the user inside net.ipv4.ping_group_range,
or the capability cap_net_raw.

--json-lines prints the same in pieces, for programs that read along: a line for each reply, with
host and address before its members, for each host at the end and for the whole, told apart by their
first member, which is event: "reply", "host" or "end".

--json prints one object: ok, socket ("datagram", "raw" or null), interrupted, error (number and
text, of what kept the command from asking at all), seconds (the whole run), count (null without
end), interval and timeout in seconds, size, and the list hosts: host, address, ok, error (number and
text, when there was no reply), sent, received, duplicates, not_awaited, loss_percent, min_ms, avg_ms, max_ms,
deviation_ms, and the list replies, unless --quiet is given: seq, status (0 a reply), text, from,
ms, ttl, duplicate. What is not known is null.)";

void DeclareQuestion(CLI::App& options, PingOptions& values) {
  constexpr const char* kGroup = "Question";
  options.add_option("HOST", values.hosts, "Names, addresses or networks (192.0.2.0/24)");
  options
      .add_option("-f,--file", values.file,
                  "More of them, from a file divided by blanks and lines; - is standard input")
      ->type_name("FILE")
      ->group(kGroup);
  options
      .add_option("-c,--count", values.count,
                  "Requests to each host; 4 if not given, 0 is until Ctrl-C")
      ->type_name("N")
      ->group(kGroup);
  options.add_option("-i,--interval", values.interval, "Time from one to the next; 1 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
  options
      .add_option("--ttl", values.ttl, "Routers that a request may pass; the system's if not given")
      ->type_name("N")
      ->group(kGroup);
  options.add_option("-s,--size", values.size, "Bytes of data in each; 32 if not given")
      ->type_name("BYTES")
      ->group(kGroup);
}

void DeclareConnection(CLI::App& options, PingOptions& values) {
  constexpr const char* kGroup = "Connection";
  options.add_option("--dns", values.dns, "DNS servers to ask, as host[:port],host[:port]")
      ->type_name("SERVERS")
      ->group(kGroup);
  options
      .add_option("-t,-w,-W,--timeout", values.timeout,
                  "How long to wait for each reply; 5 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
  options.add_option("--deadline", values.deadline, "End the whole after this time")
      ->type_name("SECONDS")
      ->group(kGroup);
  DeclareFamilyOptions(options, values.preference, kGroup);
}

}  // namespace

void DeclarePingOptions(CLI::App& options, PingOptions& values) {
  DeclareQuestion(options, values);
  DeclareConnection(options, values);
  constexpr const char* kGroup = "Output";
  options.add_flag("-q,--quiet", values.quiet, "Print statistics only")->group(kGroup);
  options
      .add_flag("-a,--alive", values.alive,
                "Print only the hosts that answer, each on a line when it does")
      ->group(kGroup);
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group(kGroup);
  options
      .add_flag("--json-lines", values.jsonLines,
                "Print a JSON object on a line for each reply when it comes, and\n"
                "at the end one for each host and one for the whole")
      ->group(kGroup);
  options.footer(kExamples);
}

void CheckPingOptions(const PingOptions& options) {
  if (options.count < 0) throw UsageError("--count: 0 or more requests are possible");
  CheckRange("--size", options.size, 0, kLargestSize);
  CheckSeconds("--interval", options.interval, kShortest);
  CheckSeconds("--timeout", options.timeout, kShortest);
  if (options.deadline != 0) CheckSeconds("--deadline", options.deadline, kShortest);
  if (options.ttl) CheckRange("--ttl", *options.ttl, 1, 255);
  if (options.alive + options.json + options.jsonLines > 1) {
    throw UsageError("--alive, --json and --json-lines exclude each other");
  }
}

}  // namespace netro::tool
