// "netro watch" on a terminal. While the table is drawn lines do not wrap, so that each is one row
// whatever the width of its characters.

#include "watch/WatchTable.h"

#include <algorithm>
#include <numeric>

#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"
#include "watch/WatchLines.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

constexpr std::size_t kStateWidth = 6;
constexpr std::size_t kNumberWidth = 6;
constexpr std::size_t kMostTimes = 60;

/// Columns in characters; 0 leaves one out.
struct Columns {
  std::size_t name = 0;
  std::size_t times = 0;
  std::size_t answer = 0;
};

Columns ColumnsFor(std::size_t width, std::size_t longestName) {
  constexpr std::size_t kFixed = kStateWidth + 3 * kNumberWidth + 7;
  constexpr std::size_t kLeastRest = 30;
  Columns columns;
  std::size_t rest = width > kFixed ? width - kFixed : 0;
  columns.name = std::clamp(longestName, std::size_t{4}, std::max(rest * 3 / 10, std::size_t{8}));
  rest -= std::min(rest, columns.name);
  if (rest >= kLeastRest) {
    columns.times = std::min(rest / 2, kMostTimes);
    columns.answer = rest - columns.times;
  } else {
    columns.answer = rest;
  }
  return columns;
}

std::string Right(const std::string& text, std::size_t width = kNumberWidth) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string Heading(const Columns& columns) {
  std::string line = Fitted("STATE", kStateWidth) + " " + Fitted("NAME", columns.name) +
                     Right("OK") + " " + Right("FAILED") + " " + Right("NEXT") + "  ";
  line += columns.times > 0 ? Fitted("TIMES", columns.times) + "  " : "";
  return Styled(Style::Dim, line + Shortened("LAST ANSWER", columns.answer));
}

std::string Row(const Watcher& watcher, std::int32_t index, const Columns& columns) {
  const WatchedHost host = watcher.Post().HostAt(index);
  const bool isEnded = watcher.Ended() != 0;
  const std::string next = isEnded ? "" : std::to_string(SecondsUntil(host.NextProbe)) + " s";
  const std::string state = Fitted(StateName(host.State), kStateWidth);
  const std::string failures = Right(std::to_string(host.Failures));
  std::string row = host.State == WatchedDown ? Styled(Style::Red, state)
                    : host.State == WatchedUp ? Styled(Style::Green, state)
                                              : state;
  row += " " + Fitted(OneLine(host.Name), columns.name) + Right(std::to_string(host.Successes)) +
         " " + (host.Failures > 0 ? Styled(Style::Red, failures) : failures) + " " + Right(next) +
         "  ";
  if (columns.times > 0) {
    const auto times = watcher.Post().PastAt(index).Times;
    row += Styled(Style::Cyan, Sparkline(times, columns.times)) + "  ";
  }
  return row + Shortened(OneLine(host.LastAnswer), columns.answer);
}

/// The hosts that have a row: all in the order of the settings, or the most urgent ones.
std::vector<std::int32_t> ShownHosts(const WatchOverview& overview, std::size_t rows) {
  if (overview.HostCount() > rows) {
    std::vector<std::int32_t> shown = overview.ByUrgency();
    shown.resize(rows);
    return shown;
  }
  std::vector<std::int32_t> all(overview.HostCount());
  std::iota(all.begin(), all.end(), 0);
  return all;
}

std::string Rest(const WatchOverview& overview, const std::vector<std::int32_t>& shown) {
  StateCounts counts = overview.Counts();
  for (const std::int32_t index : shown) {
    --counts[overview.StateOf(index)];
  }
  std::string text = "and " + CountsText(counts);
  return text.insert(text.find(" host"), " more");
}

std::string Title(const Watcher& watcher, const StateCounts& counts, std::size_t width) {
  const std::string hosts = CountsText(counts);
  const std::string text = "netro watch  " + hosts;
  const std::string settings = "  " + OneLine(watcher.Options().settings);
  if (text.size() > width) return Shortened(text, width);
  return Styled(Style::Bold, "netro watch") + "  " +
         (counts[WatchedDown] > 0 ? Styled(Style::Red, hosts) : hosts) +
         Styled(Style::Dim, Shortened(settings, width - text.size()));
}

std::vector<std::string> Lines(const Watcher& watcher, std::size_t width, std::size_t height) {
  constexpr std::size_t kOtherLines = 4;  // title, heading, the rest, the one with the cursor
  const WatchOverview overview(watcher.Post());
  const std::size_t rows = std::max(height, kOtherLines + 1) - kOtherLines;
  const std::vector<std::int32_t> shown = ShownHosts(overview, rows);
  std::size_t longest = 0;
  for (const std::int32_t index : shown) {
    longest = std::max(longest, OneLine(watcher.Post().HostAt(index).Name).size());
  }
  const Columns columns = ColumnsFor(width, longest);
  std::vector<std::string> lines = {Title(watcher, overview.Counts(), width), Heading(columns)};
  for (const std::int32_t index : shown) lines.push_back(Row(watcher, index, columns));
  if (shown.size() < overview.HostCount()) {
    lines.push_back(Styled(Style::Dim, Shortened(Rest(overview, shown), width)));
  }
  return lines;
}

}  // namespace

void WatchTable::Erase() {
  if (drawn_ > 0 && IsInForeground(Stream::Output)) {
    Print("\x1b[" + std::to_string(drawn_) + "F\x1b[J");
  }
  drawn_ = 0;
}

void WatchTable::Changed(const Watcher& /*watcher*/, const WatchNews& news) {
  Erase();
  Print(ChangeLine(news));
}

void WatchTable::Tick(const Watcher& watcher) {
  if (!IsInForeground(Stream::Output)) return;
  const auto width = static_cast<std::size_t>(Width(Stream::Output));
  const auto height = static_cast<std::size_t>(Height(Stream::Output));
  const bool isResized = drawn_ > 0 && (width != width_ || height != height_);
  std::string text = isResized ? "\x1b[H\x1b[2J" : "";
  if (drawn_ > 0 && !isResized) text += "\x1b[" + std::to_string(drawn_) + "F";
  text += "\x1b[?7l";
  const std::vector<std::string> lines = Lines(watcher, width, height);
  for (const std::string& line : lines) text += line + "\x1b[K\n";
  Print(text + "\x1b[J\x1b[?7h");
  drawn_ = lines.size();
  width_ = width;
  height_ = height;
}

void WatchTable::Problem(const std::string& text) {
  Erase();
  ShowMessage(text);
}

}  // namespace netro::tool
