// Foreign text and times in the page of "netro watch --html".

#include "watch/WatchPageText.h"

#include <array>
#include <cstddef>
#include <utility>

#include "terminal/IsoTime.h"
#include "terminal/TextWidth.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

constexpr std::size_t kLongestText = 300;

using Replacement = std::pair<std::string_view, std::string_view>;
constexpr std::array kReplacements = std::to_array<Replacement>({
    {"&", "&amp;"},
    {"<", "&lt;"},
    {">", "&gt;"},
    {"\"", "&quot;"},
    {"'", "&#39;"},
});

}  // namespace

std::string Escaped(std::string_view text) {
  const std::string line = OneLine(text);
  std::string html;
  for (std::size_t at = 0; at < line.size();) {
    std::size_t taken = 0;
    for (const auto& [from, to] : kReplacements) {
      if (line.compare(at, from.size(), from) != 0) continue;
      html += to;
      taken = from.size();
      break;
    }
    if (taken == 0) html += line[at];
    at += taken == 0 ? 1 : taken;
  }
  return html;
}

std::string Isolated(std::string_view text) {
  return "<bdi>" + Escaped(Shortened(text, kLongestText)) + "</bdi>";
}

std::string TimeElement(Date date) {
  const std::string iso = IsoTime(date);
  return "<time datetime=\"" + iso + "\">" + iso.substr(0, 10) + " " + iso.substr(11, 8) +
         "</time>";
}

std::string StateCell(WatchedStateEnum state, std::string_view word, const std::string& more) {
  constexpr const char* kMarks[] = {"○", "▲", "▼", "◇"};
  return std::string("<td class=\"state ") + StateName(state) + "\">" + kMarks[state] + " " +
         std::string(word) + more + "</td>";
}

}  // namespace netro::tool
