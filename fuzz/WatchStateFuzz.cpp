// State files of the watcher: whatever the text, reading ends within bounds, and what is sound is
// the same when it is written and read again.

#include "diag/WatchStateText.h"
#include "fuzz/Fuzz.h"

namespace {

std::string Write(const netro::WatchStateContent& content) {
  std::string text = netro::WatchStateBegin();
  for (const auto& [memory, history] : content.hosts) {
    netro::AppendWatchHost(text, memory, history);
  }
  for (const auto& [key, value] : content.others) netro::AppendWatchOther(text, key, value);
  return text + netro::WatchStateEnd(content.hosts.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  netro::WatchStateContent content;
  if (netro::ParseWatchState(text, content) != 0) return 0;
  const std::string written = Write(content);
  netro::WatchStateContent again;
  if (netro::ParseWatchState(written, again) != 0 || Write(again) != written) std::abort();
  for (auto& [memory, history] : again.hosts) {
    history.Record(memory.lastProbe, netro::WatchHistory::State::Down, 10, -1, memory.lastText);
    const netro::WatchedPast past = history.Past(memory.since);
    if (past.Times.size() > netro::WatchHistory::kMostTimes || past.UptimeMonth > 1) std::abort();
  }
  return 0;
}
