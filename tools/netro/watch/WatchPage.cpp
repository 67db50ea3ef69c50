// The page of "netro watch --html".

#include "watch/WatchPage.h"

#include <algorithm>
#include <string>

#include "terminal/IsoTime.h"
#include "terminal/TextWidth.h"
#include "watch/WatchPageStyle.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

constexpr std::size_t kLongestText = 300;

/// Foreign text for an element or a quoted attribute.
std::string Escaped(std::string_view text) {
  std::string html;
  for (const char c : OneLine(text)) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

/// The same in an element of its own: its writing direction is no one else's.
std::string Isolated(std::string_view text) {
  return "<bdi>" + Escaped(Shortened(text, kLongestText)) + "</bdi>";
}

std::string TimeElement(Date date) {
  const std::string iso = IsoTime(date);
  return "<time datetime=\"" + iso + "\">" + iso.substr(0, 10) + " " + iso.substr(11, 8) +
         "</time>";
}

std::string TimeOrDash(Date date) { return date == 0 ? "–" : TimeElement(date); }

std::string StateCell(WatchedStateEnum state, const std::string& more) {
  const char* mark = state == WatchedUp ? "▲" : state == WatchedDown ? "▼" : "○";
  const std::string name = StateName(state);
  return "<td class=\"state " + name + "\">" + mark + " " + name + more + "</td>";
}

// --- a host

constexpr int kBarDistance = 2;
constexpr int kChartHeight = 28;
constexpr int kChartWidth = kBarDistance * static_cast<int>(HostHistory::kMostTimes);

/// Paths of the times that were answered and of those that were not, the newest at the right end.
void AddBars(const std::vector<std::int32_t>& times, std::string& bars, std::string& lost) {
  constexpr int kLowest = 2;
  const std::int64_t top = ChartTop(times);
  int x = kChartWidth - kBarDistance * static_cast<int>(times.size()) + kBarDistance / 2;
  for (const std::int32_t time : times) {
    const auto height = time * std::int64_t{kChartHeight - kLowest} / top + kLowest;
    std::string& path = time < 0 ? lost : bars;
    path += "M" + std::to_string(x) + " " + std::to_string(kChartHeight) + "v-" +
            std::to_string(time < 0 ? kChartHeight : height);
    x += kBarDistance;
  }
}

std::string ChartLabel(const std::vector<std::int32_t>& times) {
  const auto lost = std::ranges::count_if(times, [](std::int32_t time) { return time < 0; });
  const std::string count = std::to_string(times.size());
  std::string label = "last " + count + ": " + std::to_string(lost) + " failed";
  if (static_cast<std::size_t>(lost) < times.size()) {
    label += ", longest " + std::to_string(*std::ranges::max_element(times)) + " ms";
  }
  return label;
}

std::string Chart(const std::vector<std::int32_t>& times) {
  if (times.empty()) return "";
  std::string bars, lost;
  AddBars(times, bars, lost);
  const std::string label = ChartLabel(times);
  return "<svg viewBox=\"0 0 " + std::to_string(kChartWidth) + " " + std::to_string(kChartHeight) +
         "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" + label +
         "\"><path class=\"lost\" d=\"" + lost + "\"/><path class=\"bar\" d=\"" + bars +
         "\"/></svg><small>" + label + "</small>";
}

std::string HostRow(const WatchedHost& host, const HostHistory& history, bool isEnded) {
  const std::string since =
      history.since == 0 ? "" : "<small>since " + TimeElement(history.since) + "</small>";
  const std::string total =
      std::to_string(history.Failed()) + " of " + std::to_string(history.Probes()) + " failed";
  const std::string row = host.Failures > 0 ? std::to_string(host.Failures) + " failed"
                                            : std::to_string(host.Successes) + " ok";
  return "<tr>" + StateCell(host.State, since) + "<th scope=\"row\" class=\"host\">" +
         Isolated(host.Name) + "<small>" + Isolated(ShownHost(host)) + "</small></th>" +
         "<td class=\"when\">" + row + "</td><td class=\"text\">" + Isolated(host.LastAnswer) +
         "<small>" + (history.Probes() > 0 ? total : "not probed yet") + "</small></td>" +
         "<td class=\"when\">" + TimeOrDash(host.LastProbe) + "<small>" +
         (isEnded ? "" : "next " + TimeOrDash(host.NextProbe)) + "</small></td><td>" +
         Chart(history.Times()) + "</td></tr>\n";
}

void WriteHosts(const Watcher& watcher, const HtmlSink& out) {
  out("<div class=\"frame\" role=\"region\" aria-label=\"Hosts\" "
      "tabindex=\"0\"><table>\n<thead><tr>"
      "<th scope=\"col\">State</th><th scope=\"col\">Host</th><th scope=\"col\">In a row</th>"
      "<th scope=\"col\">Last answer</th>"
      "<th scope=\"col\">Last probe</th><th scope=\"col\">Recent times</th></tr></thead>\n"
      "<tbody>\n");
  const WatchHistory& history = watcher.History();
  for (const std::int32_t index : history.ByUrgency()) {
    out(HostRow(watcher.Post().HostAt(index), history.Of(static_cast<std::size_t>(index)),
                watcher.Ended() != 0));
  }
  out("</tbody></table></div>\n");
}

// --- the rest

void WriteChanges(const WatchHistory& history, const HtmlSink& out) {
  out("<h2>Alerts</h2>\n");
  if (history.Changes().empty()) {
    out("<p>None so far.</p>\n");
    return;
  }
  out("<div class=\"frame\" role=\"region\" aria-label=\"Alerts\" "
      "tabindex=\"0\"><table>\n<thead><tr>"
      "<th scope=\"col\">Time</th><th scope=\"col\">State</th><th scope=\"col\">Host</th>"
      "<th scope=\"col\">Text</th></tr></thead>\n<tbody>\n");
  for (const WatchChange& change : history.Changes()) {
    out("<tr><td class=\"when\">" + TimeElement(change.time) + "</td>" +
        StateCell(change.state, "") + "<td class=\"host\">" + Isolated(change.name) + "<small>" +
        Isolated(change.host) + "</small></td><td class=\"text\">" + Isolated(change.text) +
        "</td></tr>\n");
  }
  out("</tbody></table></div>\n");
}

/// "1 of 3 hosts is down"
std::string Headline(const WatchHistory& history) {
  const StateCounts counts = history.Counts();
  const std::size_t down = counts[WatchedDown];
  const bool isOne = history.HostCount() == 1;
  const std::string hosts = std::to_string(history.HostCount()) + (isOne ? " host" : " hosts");
  if (down > 0) {
    return std::to_string(down) + " of " + hosts + (down == 1 ? " is down" : " are down");
  }
  return counts[WatchedUnknown] > 0 ? "None of " + hosts + " is down" : hosts + " up";
}

/// A large page is not worth loading every few seconds.
const char* RefreshSeconds(const Watcher& watcher) {
  return watcher.History().HostCount() <= 500 ? "10" : "60";
}

void WriteHead(const Watcher& watcher, const HtmlSink& out) {
  const bool anyDown = watcher.History().Counts()[WatchedDown] > 0;
  const std::string refresh =
      std::string("<meta http-equiv=\"refresh\" content=\"") + RefreshSeconds(watcher) + "\"/>\n";
  out("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; img-src data:\"/>\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n" +
      (watcher.Ended() == 0 ? refresh : "") + "<title>" + Headline(watcher.History()) +
      " – netro watch</title>\n<link rel=\"icon\" href=\"data:image/svg+xml,%3Csvg "
      "xmlns='http://www.w3.org/2000/svg' viewBox='0 0 9 9'%3E%3Ccircle cx='4.5' cy='4.5' r='4' "
      "fill='%23" +
      (anyDown ? "d9303e" : "2da44e") + "'/%3E%3C/svg%3E\"/>\n<style>" + kWatchPageStyle +
      "</style>\n</head>\n<body>\n");
}

}  // namespace

void WriteWatchPage(const Watcher& watcher, const HtmlSink& out) {
  const WatchHistory& history = watcher.History();
  WriteHead(watcher, out);
  const bool anyDown = history.Counts()[WatchedDown] > 0;
  const bool isEnded = watcher.Ended() != 0;
  out("<header>\n<h1" + std::string(anyDown ? " class=\"down\"" : "") + ">" + Headline(history) +
      "</h1>\n<p>" + CountsText(history.Counts()) +
      ". Settings: " + Isolated(watcher.Options().settings) + "</p>\n<p>" +
      (isEnded ? "The observation ended at " + TimeElement(watcher.Ended())
               : "Round " + std::to_string(watcher.Rounds()) + ", written at " +
                     TimeElement(DateNow())) +
      ". All times are UTC.</p>\n</header>\n<main>\n");
  WriteHosts(watcher, out);
  WriteChanges(history, out);
  out("</main>\n</body>\n</html>\n");
}

}  // namespace netro::tool
