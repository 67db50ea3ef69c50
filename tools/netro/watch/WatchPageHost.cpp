// A host in the page of "netro watch --html".

#include "watch/WatchPageHost.h"

#include <algorithm>
#include <cstddef>

#include "watch/WatchCharts.h"
#include "watch/WatchPageText.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

std::string Small(const std::string& html) {
  return html.empty() ? "" : "<small>" + html + "</small>";
}

std::string Cell(const char* kind, const std::string& html) {
  return std::string("<td class=\"") + kind + "\">" + html + "</td>";
}

std::string State(const WatchedHost& host) {
  std::string more = host.Since == 0 ? "" : Small("since " + TimeElement(host.Since));
  if (host.Flapping) more += Small("flapping");
  if (!host.Cause.empty()) more += Small("behind " + Isolated(host.Cause));
  return StateCell(host.State, host.NotProbed ? "not probed" : StateName(host.State), more);
}

std::string Answer(const WatchedHost& host, bool isEnded) {
  if (host.LastProbe == 0) return Small("not probed yet");
  std::string html = Isolated(host.LastAnswer) + Small(TimeElement(host.LastProbe));
  const bool hasOther = !host.LastFailure.empty() && host.LastFailure != host.LastAnswer;
  if (hasOther) html += Small("last failure: " + Isolated(host.LastFailure));
  const std::string row = host.Failures > 0 ? std::to_string(host.Failures) + " failed"
                                            : std::to_string(host.Successes) + " ok";
  const bool hasNext = !isEnded && host.NextProbe != 0;
  return html + Small(row + " in a row" + (hasNext ? ", next " + TimeElement(host.NextProbe) : ""));
}

std::string Item(const WatchedOutage& outage, Date now) {
  const Date end = outage.End == 0 ? now : outage.End;
  return "<li>" + TimeElement(outage.Begin) + ", " + (outage.End == 0 ? "for " : "") +
         DurationText(end - outage.Begin) + (outage.End == 0 ? " now" : "") + ": " +
         Isolated(outage.Reason) + "</li>";
}

/// The newest first.
std::string Outages(const std::vector<WatchedOutage>& outages, Date now) {
  constexpr std::size_t kMost = 10;
  if (outages.empty()) return "";
  const std::size_t count = outages.size();
  std::string html = "<details><summary>" + std::to_string(count) +
                     (count == 1 ? " outage" : " outages") + "</summary><ul>";
  for (std::size_t i = 0; i < std::min(count, kMost); ++i)
    html += Item(outages[count - 1 - i], now);
  return html + "</ul></details>";
}

std::string Month(const WatchedPast& past, Date now) {
  return DaysChart(past.Days, now) +
         Small("day " + UptimeText(past.UptimeDay) + ", week " + UptimeText(past.UptimeWeek) +
               ", month " + UptimeText(past.UptimeMonth)) +
         Outages(past.Outages, now);
}

}  // namespace

const char* const kHostColumns =
    "<th scope=\"col\">State</th><th scope=\"col\">Host</th><th scope=\"col\">Last answer</th>"
    "<th scope=\"col\">30 days, up</th><th scope=\"col\">Response times</th>";

std::string HostRow(const WatchedHost& host, const WatchedPast& past, Date now, bool isEnded) {
  const std::string name =
      Isolated(host.Name) + Small(Isolated(ShownHost(host))) + Small(Escaped(host.Kind));
  return "<tr>" + State(host) + "<th scope=\"row\" class=\"host\">" + name + "</th>" +
         Cell("text", Answer(host, isEnded)) + Cell("chart", Month(past, now)) +
         Cell("chart", HoursChart(past.Hours, now) + TimesChart(past.Times)) + "</tr>\n";
}

}  // namespace netro::tool
