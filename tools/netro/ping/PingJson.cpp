// "netro ping --json".

#include <nlohmann/json.hpp>
#include <string>

#include "ping/PingOutput.h"
#include "terminal/EchoText.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

/// null for what is not there.
Json If(bool there, Json value) { return there ? std::move(value) : Json(nullptr); }

Json Error(std::int32_t number, const std::string& text) {
  return {{"number", number}, {"text", text}};
}

Json SocketName(EchoSocketEnum socket) {
  return socket == EchoSocketNone ? Json(nullptr)
                                  : Json(socket == EchoSocketRaw ? "raw" : "datagram");
}

void AddName(Json& object, const PingTarget& target) {
  object["host"] = target.host;
  object["address"] = If(!target.address.empty(), target.address);
}

void Add(Json& object, const PingReply& reply) {
  const bool isAnswer = !reply.from.empty();
  object.update({
      {"seq", reply.sequence},
      {"status", reply.status},
      {"text", EchoAnswerText(reply.status, reply.filtered)},
      {"from", If(isAnswer, reply.from)},
      {"ms", If(isAnswer, reply.microSeconds / 1000.0)},
      {"ttl", If(isAnswer, reply.ttl)},
      {"duplicate", reply.duplicate},
  });
}

void Add(Json& object, const PingTarget& target) {
  const TimeStatistics& times = target.times;
  const bool ok = target.HasAnswered();
  AddName(object, target);
  object.update({
      {"ok", ok},
      {"error", ok ? Error(0, "") : Error(target.errorNumber, target.errorText)},
      {"sent", target.sent},
      {"received", target.Received()},
      {"duplicates", target.duplicates},
      {"not_awaited", target.NotAwaited()},
      {"loss_percent", If(target.LossPercent() >= 0, target.LossPercent())},
      {"min_ms", If(ok, times.Minimum() / 1000)},
      {"avg_ms", If(ok, times.Average() / 1000)},
      {"max_ms", If(ok, times.Maximum() / 1000)},
      {"deviation_ms", If(ok, times.Deviation() / 1000)},
  });
}

Json ToJson(const PingTarget& target, bool withReplies) {
  Json object;
  Add(object, target);
  if (withReplies) {
    object["replies"] = Json::array();
    for (const PingReply& reply : target.replies) Add(object["replies"].emplace_back(), reply);
  }
  return object;
}

void Add(Json& object, const Pinger& pinger, const PingOptions& options, double seconds) {
  const std::int32_t error = pinger.IsForbidden() ? kEchoForbidden : 0;
  object.update({
      {"ok", pinger.HaveAllAnswered()},
      {"socket", SocketName(pinger.SocketUsed())},
      {"interrupted", pinger.IsStopped()},
      {"error", Error(error, error == 0 ? "" : EchoStatusText(-error))},
      {"seconds", seconds},
      {"count", If(options.count != 0, options.count)},
      {"interval", options.interval},
      {"timeout", options.timeout},
      {"size", options.size},
  });
}

}  // namespace

void PrintPingJson(const Pinger& pinger, const PingOptions& options, double seconds) {
  Json object;
  Add(object, pinger, options, seconds);
  object["hosts"] = Json::array();
  for (const PingTarget& target : pinger.Targets()) {
    object["hosts"].push_back(ToJson(target, !options.quiet));
  }
  PrintObject(object);
}

bool PrintJsonLine(const PingTarget& target, const PingReply& reply) {
  Json object = {{"event", "reply"}};
  AddName(object, target);
  Add(object, reply);
  return PrintObjectLine(object);
}

void PrintJsonEnd(const Pinger& pinger, const PingOptions& options, double seconds) {
  for (const PingTarget& target : pinger.Targets()) {
    Json object = {{"event", "host"}};
    Add(object, target);
    PrintObjectLine(object);
  }
  Json object = {{"event", "end"}};
  Add(object, pinger, options, seconds);
  PrintObjectLine(object);
}

}  // namespace netro::tool
