// The small charts of the page of "netro watch --html".

#include "watch/WatchCharts.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "terminal/IsoTime.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

constexpr int kHeight = 28;

std::string Svg(int width, const std::string& label, const std::string& content) {
  return "<svg viewBox=\"0 0 " + std::to_string(width) + " " + std::to_string(kHeight) +
         "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" + label + "\">" + content +
         "</svg>";
}

std::string Path(const char* kind, const std::string& data) {
  return data.empty() ? "" : std::string("<path class=\"") + kind + "\" d=\"" + data + "\"/>";
}

/// How many spans of the length lie between; 0 for the one that holds `now`.
int Age(Date begin, Date now, double perDay) {
  return static_cast<int>(std::floor(now * perDay) - std::floor(begin * perDay + 0.5));
}

std::string Line(int x, std::int64_t height) {
  return "M" + std::to_string(x) + " " + std::to_string(kHeight) + "v-" + std::to_string(height);
}

std::string TimesLabel(const std::vector<std::int32_t>& times) {
  const auto lost = std::ranges::count_if(times, [](std::int32_t time) { return time < 0; });
  std::string label =
      "last " + std::to_string(times.size()) + ": " + std::to_string(lost) + " failed";
  if (static_cast<std::size_t>(lost) < times.size()) {
    label += ", longest " + std::to_string(*std::ranges::max_element(times)) + " ms";
  }
  return label;
}

// --- a day

/// A bar of its own height too, for those who do not see its colour.
struct DayBar {
  const char* kind;
  int height;
};

DayBar BarOf(const WatchedSpan& day) {
  if (day.DownSeconds == 0) return {"fine", kHeight / 2};
  return day.UpSeconds > day.DownSeconds ? DayBar{"partly", kHeight * 3 / 4}
                                         : DayBar{"lost", kHeight};
}

std::string DayTitle(const WatchedSpan& day) {
  constexpr double kSecondsPerDay = 86400;
  return IsoTime(day.Begin).substr(0, 10) + ": down " +
         DurationText(day.DownSeconds / kSecondsPerDay) + ", " + std::to_string(day.Failed) +
         " of " + std::to_string(day.Probes) + " probes failed";
}

}  // namespace

std::string TimesChart(const std::vector<std::int32_t>& times) {
  constexpr int kDistance = 2;
  constexpr int kLowest = 2;
  constexpr int kMost = 120;
  if (times.empty()) return "";
  std::string bars, lost;
  const std::int64_t top = ChartTop(times);
  int x = kDistance * (kMost - static_cast<int>(times.size())) + kDistance / 2;
  for (const std::int32_t time : times) {
    if (time < 0) lost += Line(x, kHeight);
    if (time >= 0) bars += Line(x, time * std::int64_t{kHeight - kLowest} / top + kLowest);
    x += kDistance;
  }
  const std::string label = TimesLabel(times);
  return Svg(kDistance * kMost, label, Path("lost", lost) + Path("bar", bars)) + "<small>" + label +
         "</small>";
}

std::string HoursChart(const std::vector<WatchedSpan>& hours, Date now) {
  constexpr int kHours = 48;
  constexpr int kDistance = 5;
  std::vector<std::int32_t> times;
  for (const WatchedSpan& hour : hours) times.push_back(hour.Longest);
  const std::int64_t top = ChartTop(times);
  std::string longest, average;
  int before = -1;  // hour of the curve's last point
  int points = 0;
  for (const WatchedSpan& hour : hours) {
    const int age = Age(hour.Begin, now, 24);
    if (age < 0 || age >= kHours || hour.Average < 0) continue;
    const int x = kDistance * (kHours - 1 - age) + kDistance / 2;
    longest += Line(x, hour.Longest * std::int64_t{kHeight - 2} / top + 1);
    average += (before == age + 1 ? "L" : "M") + std::to_string(x) + " " +
               std::to_string(kHeight - 1 - hour.Average * std::int64_t{kHeight - 2} / top);
    if (before != age + 1) average += "h1";  // a lone hour is seen too
    before = age;
    ++points;
  }
  if (points < 2) return "";
  const std::string label = "48 hours, up to " + std::to_string(top) + " ms";
  return Svg(kDistance * kHours, label, Path("longest", longest) + Path("curve", average)) +
         "<small>" + label + "</small>";
}

std::string DaysChart(const std::vector<WatchedSpan>& days, Date now) {
  constexpr int kDays = 30;
  constexpr int kDistance = 8;
  std::string content;
  int observed = 0;
  for (const WatchedSpan& day : days) {
    const int age = Age(day.Begin, now, 1);
    if (age < 0 || age >= kDays) continue;
    ++observed;
    const int x = kDistance * (kDays - 1 - age) + 1;
    const DayBar bar = BarOf(day);
    content += std::string("<rect class=\"") + bar.kind + "\" x=\"" + std::to_string(x) +
               "\" y=\"" + std::to_string(kHeight - bar.height) + "\" width=\"" +
               std::to_string(kDistance - 2) + "\" height=\"" + std::to_string(bar.height) + "\"";
    content += day.DownSeconds > 0 ? "><title>" + DayTitle(day) + "</title></rect>" : "/>";
  }
  const std::string label = "30 days, " + std::to_string(observed) + " observed";
  return Svg(kDistance * kDays, label, content);
}

}  // namespace netro::tool
