// "netro watch --json". The hosts are printed one by one, since there may be thousands.

#include "watch/WatchJson.h"

#include <nlohmann/json.hpp>
#include <string>

#include "terminal/IsoTime.h"
#include "terminal/Terminal.h"
#include "watch/WatchText.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

Json Time(Date date) { return date == 0 ? Json(nullptr) : Json(IsoTime(date)); }

/// null for a failure.
Json MilliSeconds(std::int32_t time) { return time < 0 ? Json(nullptr) : Json(time); }

Json ToJson(const WatchedHost& host, const HostHistory& history) {
  Json object = {
      {"name", host.Name},
      {"host", ShownHost(host)},
      {"kind", KindName(host)},
      {"state", StateName(host.State)},
      {"since", Time(history.since)},
      {"successes", host.Successes},
      {"failures", host.Failures},
      {"last_answer", host.LastProbe == 0 ? Json(nullptr) : Json(host.LastAnswer)},
      {"ms", MilliSeconds(host.LastMilliSeconds)},
      {"last_probe", Time(host.LastProbe)},
      {"probes", history.Probes()},
      {"failed", history.Failed()},
      {"times", Json::array()},
  };
  for (const std::int32_t time : history.Times()) object["times"].push_back(MilliSeconds(time));
  return object;
}

Json ToJson(const WatchChange& change) {
  return {{"time", Time(change.time)},
          {"state", StateName(change.state)},
          {"name", change.name},
          {"host", change.host},
          {"text", change.text}};
}

std::string Dump(const Json& object) {
  const bool onlyAscii = IsTerminal(Stream::Output);
  return object.dump(-1, ' ', onlyAscii, Json::error_handler_t::replace);
}

/// `"key": [` and each on a line of its own.
template <class Count, class Item>
void PrintList(const char* key, Count count, Item item) {
  Print(std::string("  \"") + key + "\": [");
  for (Count i = 0; i < count; ++i) Print((i > 0 ? ",\n    " : "\n    ") + Dump(item(i)));
  Print(count > 0 ? "\n  ]" : "]");
}

}  // namespace

void PrintWatchJson(const Watcher& watcher) {
  const Json head = {
      {"ok", watcher.AllAnswer()},
      {"interrupted", watcher.IsInterrupted()},
      {"error", {{"number", watcher.ErrorNumber()}, {"text", watcher.ErrorText()}}},
      {"settings", watcher.Options().settings},
      {"started", Time(watcher.Started())},
      {"ended", Time(watcher.Ended())},
      {"rounds", watcher.Rounds()},
  };
  Print("{\n");
  for (const auto& [key, value] : head.items()) Print("  \"" + key + "\": " + Dump(value) + ",\n");
  const WatchHistory& history = watcher.History();
  PrintList("hosts", history.HostCount(), [&](std::size_t i) {
    return ToJson(watcher.Post().HostAt(static_cast<std::int32_t>(i)), history.Of(i));
  });
  Print(",\n");
  const auto& changes = history.Changes();
  PrintList("changes", changes.size(), [&](std::size_t i) { return ToJson(changes[i]); });
  Print("\n}\n");
}

}  // namespace netro::tool
