// "netro watch --json": JSON lines. The hosts are printed one by one, since there may be thousands.

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

Json Uptime(double uptime) { return uptime < 0 ? Json(nullptr) : Json(uptime); }

Json ToJson(const WatchedSpan& day) {
  return {{"begin", Time(day.Begin)},
          {"up_seconds", day.UpSeconds},
          {"down_seconds", day.DownSeconds},
          {"probes", day.Probes},
          {"failed", day.Failed},
          {"shortest", MilliSeconds(day.Shortest)},
          {"average", MilliSeconds(day.Average)},
          {"longest", MilliSeconds(day.Longest)}};
}

void AddPast(Json& object, const WatchedPast& past) {
  object["uptime"] = {{"day", Uptime(past.UptimeDay)},
                      {"week", Uptime(past.UptimeWeek)},
                      {"month", Uptime(past.UptimeMonth)}};
  for (const char* list : {"times", "days", "outages"}) object[list] = Json::array();
  for (const std::int32_t time : past.Times) object["times"].push_back(MilliSeconds(time));
  for (const WatchedSpan& day : past.Days) object["days"].push_back(ToJson(day));
  for (const WatchedOutage& outage : past.Outages) {
    object["outages"].push_back(
        {{"begin", Time(outage.Begin)}, {"end", Time(outage.End)}, {"reason", outage.Reason}});
  }
}

Json ToJson(const WatchedHost& host, const WatchedPast& past) {
  const bool isProbed = host.LastProbe != 0;
  Json object = {
      {"name", host.Name},
      {"host", ShownHost(host)},
      {"kind", host.Kind},
      {"state", StateName(host.State)},
      {"since", Time(host.Since)},
      {"flapping", host.Flapping},
      {"behind", host.Cause.empty() ? Json(nullptr) : Json(host.Cause)},
      {"successes", host.Successes},
      {"failures", host.Failures},
      {"last_answer", isProbed ? Json(host.LastAnswer) : Json(nullptr)},
      {"last_failure", host.LastFailure.empty() ? Json(nullptr) : Json(host.LastFailure)},
      {"ms", MilliSeconds(host.LastMilliSeconds)},
      {"last_probe", Time(host.LastProbe)},
  };
  AddPast(object, past);
  return object;
}

Json ToJson(const WatchNews& news) {
  const WatchedHost& host = news.host;
  return {{"time", Time(news.time)},
          {"change", ChangeName(news.change)},
          {"state", StateName(host.State)},
          {"name", host.Name},
          {"host", ShownHost(host)},
          {"kind", host.Kind},
          {"behind", host.Cause.empty() ? Json(nullptr) : Json(host.Cause)},
          {"ms", MilliSeconds(host.LastMilliSeconds)},
          {"text", host.LastAnswer}};
}

std::string Dump(const Json& object) {
  const bool onlyAscii = IsTerminal(Stream::Output);
  return object.dump(-1, ' ', onlyAscii, Json::error_handler_t::replace);
}

/// `, "key": [...]`
template <class Count, class Item>
void PrintList(const char* key, Count count, Item item) {
  Print(std::string(", \"") + key + "\": [");
  for (Count i = 0; i < count; ++i) Print((i > 0 ? ", " : "") + Dump(item(i)));
  Print("]");
}

}  // namespace

void WatchJson::Changed(const Watcher& /*watcher*/, const WatchNews& news) {
  Json line = {{"type", "change"}};
  line.update(ToJson(news));
  Print(Dump(line) + "\n");
}

void PrintWatchJson(const Watcher& watcher) {
  const Json head = {
      {"type", "end"},
      {"ok", watcher.AllAnswer()},
      {"interrupted", watcher.IsInterrupted()},
      {"error", {{"number", watcher.ErrorNumber()}, {"text", watcher.ErrorText()}}},
      {"settings", watcher.Options().settings},
      {"started", Time(watcher.Started())},
      {"ended", Time(watcher.Ended())},
      {"rounds", watcher.Rounds()},
  };
  const std::string begin = Dump(head);
  Print(begin.substr(0, begin.size() - 1));
  PrintList("hosts", watcher.Post().HostCount(), [&](std::int32_t i) {
    return ToJson(watcher.Post().HostAt(i), watcher.Post().PastAt(i));
  });
  const auto& changes = watcher.Changes();
  PrintList("changes", changes.size(), [&](std::size_t i) { return ToJson(changes[i]); });
  Print("}\n");
}

}  // namespace netro::tool
