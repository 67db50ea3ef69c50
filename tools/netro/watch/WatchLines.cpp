// "netro watch" in lines.

#include "watch/WatchLines.h"

#include <algorithm>
#include <cstddef>

#include "terminal/IsoTime.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

std::string Line(Date time, const std::string& word, const WatchedHost& host,
                 const std::string& text) {
  return IsoTime(time) + " " + word + " " + OneLine(host.Name) + " (" + ShownHost(host) +
         "): " + OneLine(text) + "\n";
}

std::string Padded(const std::string& word) {
  constexpr std::size_t kWordWidth = 6;
  return Fitted(word, std::max(kWordWidth, word.size()));
}

}  // namespace

std::string ChangeLine(const WatchNews& news) {
  const WatchedHost& host = news.host;
  const std::string word = Padded(ChangeName(news.change));
  std::string text = host.LastAnswer;
  if (!host.Cause.empty()) text = "behind " + host.Cause + ". " + text;
  return Line(news.time, Styled(host.State == WatchedUp ? Style::Green : Style::Red, word), host,
              text);
}

void WatchLines::Probed(const Watcher& watcher, const WatchedHost& host, bool isFirstAnswer) {
  const bool wantsAll = watcher.Options().verbose || watcher.Options().once;
  if (!wantsAll && !isFirstAnswer) return;
  const bool isGood = host.LastMilliSeconds >= 0;
  const std::string word = isFirstAnswer    ? Styled(Style::Green, Padded("up"))
                           : host.NotProbed ? Padded("not probed")
                                            : Padded(isGood ? "ok" : "failed");
  Print(Line(host.LastProbe, word, host, host.LastAnswer));
}

void WatchLines::Changed(const Watcher& /*watcher*/, const WatchNews& news) {
  Print(ChangeLine(news));
}

}  // namespace netro::tool
