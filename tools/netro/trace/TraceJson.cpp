// "netro trace --json".

#include <algorithm>
#include <nlohmann/json.hpp>

#include "terminal/EchoText.h"
#include "terminal/Terminal.h"
#include "trace/TraceOutput.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int32_t kCancelled = 9999;

Json Text(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json SocketName(const TraceProbes* probes) {
  const EchoSocketEnum socket = probes == nullptr ? EchoSocketNone : probes->SocketUsed();
  return socket == EchoSocketNone ? Json(nullptr)
                                  : Json(socket == EchoSocketRaw ? "raw" : "datagram");
}

Json ToJson(const TraceProbe& probe) {
  return {
      {"status", probe.status},
      {"text", probe.status == 0 ? "" : EchoStatusText(probe.status)},
      {"from", Text(probe.host)},
      {"ms", probe.host.empty() ? Json(nullptr) : Json(probe.microSeconds / 1000.0)},
  };
}

Json ToJson(std::size_t number, const TraceHop& hop, const TraceNames& names) {
  Json hosts = Json::array();
  for (const std::string& host : HostsOf(hop)) {
    hosts.push_back({{"address", host}, {"name", Text(names.NameOf(host))}});
  }
  Json probes = Json::array();
  for (const TraceProbe& probe : hop.probes) probes.push_back(ToJson(probe));
  const auto lost = static_cast<double>(std::ranges::count(hop.probes, "", &TraceProbe::host));
  return {{"hop", number},
          {"loss_percent", 100 * lost / static_cast<double>(hop.probes.size())},
          {"hosts", std::move(hosts)},
          {"probes", std::move(probes)}};
}

}  // namespace

void PrintTraceJson(const TraceOptions& options, const TraceEnd& end, const TraceProbes* probes,
                    const TraceNames& names) {
  Json object = {
      {"host", options.host},
      {"address", Text(end.address)},
      {"ok", end.error == 0},
      {"socket", SocketName(probes)},
      {"interrupted", end.error == kCancelled},
      {"error", {{"number", end.error}, {"text", end.errorText}}},
      {"seconds", end.seconds},
      {"timeout", options.timeout},
      {"size", options.size},
      {"hops", Json::array()},
  };
  for (std::size_t i = 0; probes != nullptr && i < probes->KnownHops(); ++i) {
    object["hops"].push_back(ToJson(i + 1, probes->Hop(i), names));
  }
  Print(object.dump(2) + "\n");
}

}  // namespace netro::tool
