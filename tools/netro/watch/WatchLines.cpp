// "netro watch" in lines.

#include "watch/WatchLines.h"

#include "terminal/IsoTime.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"
#include "watch/WatchText.h"

namespace netro::tool {

std::string ProbeLine(const WatchedHost& host, HostNews news) {
  constexpr std::size_t kWordWidth = 6;
  const bool isGood = host.Failures == 0;
  const bool hasChanged = news != HostNews::None;
  const std::string word = hasChanged ? StateName(host.State) : isGood ? "ok" : "failed";
  const std::string padded = Fitted(word, kWordWidth);
  const std::string begin =
      hasChanged ? Styled(isGood ? Style::Green : Style::Red, padded) : padded;
  return IsoTime(host.LastProbe) + " " + begin + " " + OneLine(host.Name) + " (" + ShownHost(host) +
         "): " + OneLine(host.LastAnswer) + "\n";
}

void WatchLines::Probed(const Watcher& watcher, std::int32_t index, HostNews news) {
  if (news != HostNews::None || watcher.Options().verbose || watcher.Options().once) {
    Print(ProbeLine(watcher.Post().HostAt(index), news));
  }
}

}  // namespace netro::tool
