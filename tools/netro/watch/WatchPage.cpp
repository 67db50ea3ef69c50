// The page of "netro watch --html".

#include "watch/WatchPage.h"

#include <string>

#include "watch/WatchOverview.h"
#include "watch/WatchPageHost.h"
#include "watch/WatchPageStyle.h"
#include "watch/WatchPageText.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

void WriteTable(const char* label, const char* columns, const HtmlSink& out) {
  out(std::string("<div class=\"frame\" role=\"region\" aria-label=\"") + label +
      "\" tabindex=\"0\"><table>\n<thead><tr>" + columns + "</tr></thead>\n<tbody>\n");
}

void WriteHosts(const Watcher& watcher, const WatchOverview& overview, const HtmlSink& out) {
  WriteTable("Hosts", kHostColumns, out);
  const Date now = DateNow();
  for (const std::int32_t index : overview.ByUrgency()) {
    out(HostRow(watcher.Post().HostAt(index), watcher.Post().PastAt(index), now,
                watcher.Ended() != 0));
  }
  out("</tbody></table></div>\n");
}

void WriteChanges(const Watcher& watcher, const HtmlSink& out) {
  out("<h2>Alerts</h2>\n");
  if (watcher.Changes().empty()) {
    out("<p>None so far.</p>\n");
    return;
  }
  WriteTable("Alerts",
             "<th scope=\"col\">Time</th><th scope=\"col\">Change</th><th scope=\"col\">Host</th>"
             "<th scope=\"col\">Text</th>",
             out);
  for (const WatchNews& news : watcher.Changes()) {
    out("<tr><td class=\"when\">" + TimeElement(news.time) + "</td>" +
        StateCell(news.host.State, ChangeName(news.change), "") + "<td class=\"host\">" +
        Isolated(news.host.Name) + "<small>" + Isolated(ShownHost(news.host)) +
        "</small></td><td class=\"text\">" + Isolated(news.host.LastAnswer) + "</td></tr>\n");
  }
  out("</tbody></table></div>\n");
}

/// "1 of 3 hosts is down"
std::string Headline(const WatchOverview& overview) {
  const StateCounts counts = overview.Counts();
  const std::size_t down = counts[WatchedDown];
  const bool isOne = overview.HostCount() == 1;
  const std::string hosts = std::to_string(overview.HostCount()) + (isOne ? " host" : " hosts");
  if (down > 0) {
    return std::to_string(down) + " of " + hosts + (down == 1 ? " is down" : " are down");
  }
  return counts[WatchedUnknown] > 0 ? "None of " + hosts + " is down" : hosts + " up";
}

/// A large page is not worth loading every few seconds.
const char* RefreshSeconds(const WatchOverview& overview) {
  return overview.HostCount() <= 100 ? "10" : "60";
}

void WriteHead(const Watcher& watcher, const WatchOverview& overview, const HtmlSink& out) {
  const bool anyDown = overview.Counts()[WatchedDown] > 0;
  const std::string refresh =
      std::string("<meta http-equiv=\"refresh\" content=\"") + RefreshSeconds(overview) + "\"/>\n";
  out("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; img-src data:\"/>\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n" +
      (watcher.Ended() == 0 ? refresh : "") + "<title>" + Headline(overview) +
      " – netro watch</title>\n<link rel=\"icon\" href=\"data:image/svg+xml,%3Csvg "
      "xmlns='http://www.w3.org/2000/svg' viewBox='0 0 9 9'%3E%3Ccircle cx='4.5' cy='4.5' r='4' "
      "fill='%23" +
      (anyDown ? "d9303e" : "2da44e") + "'/%3E%3C/svg%3E\"/>\n<style>" + kWatchPageStyle +
      "</style>\n</head>\n<body>\n");
}

}  // namespace

void WriteWatchPage(const Watcher& watcher, const HtmlSink& out) {
  const WatchOverview overview(watcher.Post());
  WriteHead(watcher, overview, out);
  const bool anyDown = overview.Counts()[WatchedDown] > 0;
  const bool isEnded = watcher.Ended() != 0;
  out("<header>\n<h1" + std::string(anyDown ? " class=\"down\"" : "") + ">" + Headline(overview) +
      "</h1>\n<p>" + CountsText(overview.Counts()) +
      ". Settings: " + Isolated(watcher.Options().settings) + "</p>\n<p>" +
      (isEnded ? "The observation ended at " + TimeElement(watcher.Ended())
               : "Round " + std::to_string(watcher.Rounds()) + ", written at " +
                     TimeElement(DateNow())) +
      ". All times are UTC.</p>\n</header>\n<main>\n");
  WriteHosts(watcher, overview, out);
  WriteChanges(watcher, out);
  out("</main>\n</body>\n</html>\n");
}

}  // namespace netro::tool
