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

Json ToJson(const PingReply& reply) {
  const bool isAnswer = !reply.from.empty();
  return {
      {"seq", reply.sequence},
      {"status", reply.status},
      {"text", EchoAnswerText(reply.status, reply.filtered)},
      {"from", If(isAnswer, reply.from)},
      {"ms", If(isAnswer, reply.microSeconds / 1000.0)},
      {"ttl", If(isAnswer, reply.ttl)},
      {"duplicate", reply.duplicate},
  };
}

Json ToJson(const PingTarget& target, bool withReplies) {
  const TimeStatistics& times = target.times;
  const bool ok = target.HasAnswered();
  Json object = {
      {"host", target.host},
      {"address", If(!target.address.empty(), target.address)},
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
  };
  if (withReplies) {
    object["replies"] = Json::array();
    for (const PingReply& reply : target.replies) object["replies"].push_back(ToJson(reply));
  }
  return object;
}

}  // namespace

void PrintPingJson(const Pinger& pinger, const PingOptions& options, double seconds) {
  const std::int32_t error = pinger.IsForbidden() ? kEchoForbidden : 0;
  Json object = {
      {"ok", pinger.HaveAllAnswered()},
      {"socket", SocketName(pinger.SocketUsed())},
      {"interrupted", pinger.IsStopped()},
      {"error", Error(error, error == 0 ? "" : EchoStatusText(-error))},
      {"seconds", seconds},
      {"count", If(options.count != 0, options.count)},
      {"interval", options.interval},
      {"timeout", options.timeout},
      {"size", options.size},
      {"hosts", Json::array()},
  };
  for (const PingTarget& target : pinger.Targets()) {
    object["hosts"].push_back(ToJson(target, !options.quiet));
  }
  PrintObject(object);
}

}  // namespace netro::tool
