// The part of the tour about names: questions of several types, a zone, the cache of lookups, and
// the servers of this system.

#include <netro/FindDNSCLS.h>
#include <netro/QueryDNSCLS.h>
#include <netro/RecordText.h>
#include <netro/SocketCls.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "terminal/Stopwatch.h"
#include "tour/TourDnsServer.h"
#include "tour/TourSections.h"

namespace netro::tool {
namespace {

/// What a step asks for, and what is expected of it.
struct DnsStep {
  const char* title;
  const char* domain;
  QueryEnum type;
  bool overTcp;
  std::int32_t error;
  std::int32_t count;
  std::string_view first;  // the data of the first record
};

constexpr DnsStep kSteps[] = {
    {"The address of a name", "palace.agrabah.tour", TYPE_A, false, 0, 1, "192.0.2.1"},
    {"Where mail goes", "agrabah.tour", TYPE_MX, false, 0, 1, "10 palace.agrabah.tour."},
    {"The name of an address", "192.0.2.1", TYPE_PTR, false, 0, 1, "palace.agrabah.tour."},
    {"A text, over TCP", "agrabah.tour", TYPE_TXT, true, 0, 1, "\"three wishes\" \"no more\""},
    {"A name that does not exist", "lamp.agrabah.tour", TYPE_A, false, 59, 0, ""},
    {"A whole zone, in two messages", "agrabah.tour", TYPE_AXFR, true, 0, 5,
     "ns.agrabah.tour. genie.agrabah.tour. 1 3600 900 86400 300"},
};

std::string OutcomeText(const QueryDNSCLS& query) {
  if (query.LastErr() != 0) {
    return "error " + std::to_string(query.LastErr()) + ", \"" + query.LastErrMsg() + "\"";
  }
  std::string text;
  for (std::int32_t i = 1; i <= query.Count(); ++i) {
    const DNSCLS& record = *query.Entry(i);
    text += (i == 1 ? "" : "; ") + RecordNameText(record.Query()) + " " +
            RecordTypeText(record.DataType()) + " " + RecordDataText(record);
  }
  return text;
}

TourStep Run(const DnsStep& step, const TourDnsServer& server, TourJournal& journal) {
  QueryDNSCLS query;
  query.Domain(step.domain);
  query.QueryType(step.type);
  query.DNSServer("127.0.0.1");
  query.DNSPort(step.overTcp ? server.TcpPort() : server.UdpPort());
  query.UseUDP(!step.overTcp);
  query.EscapeNames(true);

  TourStep report;
  report.title = step.title;
  report.call = std::string(step.type == TYPE_AXFR ? "QueryZone " : "QueryDNS ") + step.domain +
                " " + RecordTypeText(step.type) +
                " at 127.0.0.1:" + std::to_string(query.DNSPort());
  const Stopwatch watch;
  const std::int32_t error = step.type == TYPE_AXFR ? query.QueryZone() : query.QueryDNS();
  report.seconds = watch.Seconds();
  report.outcome = OutcomeText(query);
  report.messages = journal.Take();
  report.asExpected = error == step.error && query.Count() == step.count &&
                      (query.Count() == 0 || RecordDataText(*query.Entry(1)) == step.first);
  return report;
}

/// The same name twice; the server hears of it once.
TourStep LookUpTwice(const TourDnsServer& server, TourJournal& journal) {
  SocketCls socket;
  socket.ClearDNSCache();
  socket.DNSURL("127.0.0.1:" + std::to_string(server.UdpPort()));
  const int before = server.UdpQueries();

  TourStep report;
  report.title = "A lookup that is remembered";
  report.call = "SocketCls.DNSLookup(\"palace.agrabah.tour\"), twice";
  const Stopwatch watch;
  const std::string first = socket.DNSLookup("palace.agrabah.tour");
  const std::string second = socket.DNSLookup("palace.agrabah.tour");
  report.seconds = watch.Seconds();
  const int queries = server.UdpQueries() - before;
  report.outcome = first + ", and " + second + " from the cache; the server was asked " +
                   (queries == 1 ? "once" : std::to_string(queries) + " times") +
                   ", the cache holds " + std::to_string(socket.GetDNSCacheCount());
  report.messages = journal.Take();
  report.asExpected =
      first == "192.0.2.1" && second == first && queries == 1 && socket.GetDNSCacheCount() == 1;
  return report;
}

/// Whatever this system is configured with, none included.
TourStep ShowServers() {
  TourStep report;
  report.title = "The DNS servers of this system";
  report.call = "FindDNSCLS.Servers()";
  const Stopwatch watch;
  const FindDNSCLS system;
  for (const std::string& server : system.Servers()) {
    report.outcome += (report.outcome.empty() || server.empty() ? "" : ", ") + server;
  }
  report.seconds = watch.Seconds();
  report.asExpected = system.Servers().size() == static_cast<std::size_t>(system.Count()) + 1;
  if (report.outcome.empty()) report.outcome = "none";
  if (!system.LocalDomain().empty()) report.outcome += "; the domain is " + system.LocalDomain();
  return report;
}

}  // namespace

void TourDns(TourReport& report) {
  TourJournal journal;
  const TourDnsServer server(journal);
  for (const DnsStep& step : kSteps) report.Add(Run(step, server, journal));
  report.Add(LookUpTwice(server, journal));
  report.Add(ShowServers());
}

}  // namespace netro::tool
