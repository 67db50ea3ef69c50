// "netro tour": every class at work against servers on the loopback interface, all on one thread
// and one message loop. No network is needed.

#include "tour/Tour.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "tour/TourReport.h"
#include "tour/TourSections.h"

namespace netro::tool {
namespace {

struct Section {
  const char* name;
  const char* about;
  void (*run)(TourReport& report);
};

constexpr Section kSections[] = {
    {"Sockets (SocketCls)", "One connection, driven by events alone.", TourSockets},
    {"HTTP (HTTPCls)",
     "Client, servers and proxies share one thread: while a call waits for its answer, it keeps\n"
     "the message loop going, so that the servers can give that answer.",
     TourHttp},
    {"Names (QueryDNSCLS, FindDNSCLS, the lookup cache)",
     "Questions over UDP and TCP, and lookups that every class shares.", TourDns},
    {"Mail (SendMailCls, SMTPCls)",
     "Messages composed and sent, each recipient in a session of its own.", TourMail},
    {"Time (QueryTimeCLS)",
     "SNTP has port 123 to itself, where no ordinary program may listen; so the server is asked "
     "by\n"
     "the time protocol, and a reply of SNTP is known by its length. Its clock is an hour fast.",
     TourTime},
    {"WHOIS (WhoIsCls)", "One line asks; everything until the server closes is the answer.",
     TourWhoIs},
    {"Diagnostics (ICMPCls, EchoCls, NetBIOSCls)",
     "Echoes of loopback, where the system permits them, and the adapters of this computer.",
     TourDiagnostics},
};

int RunTour(bool json) {
  TourReport report(json);
  for (const Section& section : kSections) {
    report.BeginSection(section.name, section.about);
    section.run(report);
  }
  return report.Finish() ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpTour(CLI::App& options) {
  const auto json = std::make_shared<bool>(false);
  options.add_flag("--json", *json, "Print one JSON object that holds all steps");
  options.footer(
      "\nStarts small servers inside its own process and prints what each of them received (>)\n"
      "and sent (<), and what the library made of it. Exit status 0 when every step went as\n"
      "expected.");
  return [json] { return RunTour(*json); };
}

}  // namespace netro::tool
