// The options of "netro mac".

#include "mac/MacOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr const char* kExamples = R"(
Examples:
  netro mac
  netro mac 192.0.2.7
  netro mac fe80::1%eth0
  netro mac fileserver --netbios

Without HOST the adapters of this computer are listed with their addresses, all but loopback. With HOST its MAC address
is found by ARP, or neighbour discovery for IPv6, which reach the hosts on the networks of this
computer only. --netbios asks the host for its NetBIOS node status instead, over UDP port 137 and
IPv4; not every host tells its MAC address then.

--json prints one object: host and address (null where there is none), method ("adapters", "arp",
"ndp" or "netbios"), ok, error (number and text; numbers as in NetBIOSCls, or of the name lookup),
seconds, and the list adapters: number (null for other hosts), mac, of the own ones name (null when
the system has none) and addresses, and but for "arp" and "ndp" the status: a member for each
property of NetBIOSCls.)";

}  // namespace

void DeclareMacOptions(CLI::App& options, MacOptions& values) {
  constexpr const char* kGroup = "Question";
  options
      .add_option("HOST", values.host, "Name or address of a host; the own adapters if not given")
      ->check([](const std::string& host) {
        return std::string(host.empty() ? "must not be empty" : "");
      });
  options.add_flag("--netbios", values.netBios, "Ask HOST for its NetBIOS node status")
      ->group(kGroup);
  options.add_option("-t,--timeout", values.timeout, "Limit of the whole query; 10 if not given")
      ->type_name("SECONDS")
      ->group("Connection");
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group("Output");
  options.footer(kExamples);
}

void CheckMacOptions(const MacOptions& options) {
  if (!options.host.empty()) {
    CheckHost(options.host);
  } else if (options.netBios) {
    throw UsageError("--netbios: HOST is missing");
  }
  CheckSeconds("--timeout", options.timeout);
}

}  // namespace netro::tool
