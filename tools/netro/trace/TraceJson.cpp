// "netro trace --json".

#include <algorithm>
#include <nlohmann/json.hpp>

#include "terminal/EchoText.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"
#include "trace/LiveTable.h"
#include "trace/TraceOutput.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int32_t kCancelled = 9999;

Json Text(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json SocketName(EchoSocketEnum socket) {
  return socket == EchoSocketNone ? Json(nullptr)
                                  : Json(socket == EchoSocketRaw ? "raw" : "datagram");
}

Json ToJson(const std::vector<MplsLabel>& labels) {
  Json list = Json::array();
  for (const MplsLabel& label : labels) {
    list.push_back({{"label", label.Label},
                    {"class", label.TrafficClass},
                    {"bottom", label.BottomOfStack},
                    {"ttl", label.TTL}});
  }
  return list;
}

Json ToJson(const TraceProbe& probe) {
  return {
      {"status", probe.status},
      {"text", EchoAnswerText(probe.status, probe.isFiltered)},
      {"from", Text(probe.host)},
      {"ms", probe.host.empty() ? Json(nullptr) : Json(probe.microSeconds / 1000.0)},
      {"labels", ToJson(probe.labels)},
  };
}

Json ToJson(const std::vector<TraceProbe>& probes) {
  Json list = Json::array();
  for (const TraceProbe& probe : probes) list.push_back(ToJson(probe));
  return list;
}

Json ToJson(std::size_t number, const TraceHop& hop, const TraceNames& names) {
  Json hosts = Json::array();
  for (const std::string& host : HostsOf(hop)) {
    hosts.push_back({{"address", host}, {"name", Text(names.NameOf(host))}});
  }
  const auto lost = static_cast<double>(std::ranges::count(hop.probes, "", &TraceProbe::host));
  return {{"hop", number},
          {"loss_percent", 100 * lost / static_cast<double>(hop.probes.size())},
          {"hosts", std::move(hosts)},
          {"probes", ToJson(hop.probes)}};
}

Json ToJson(std::size_t number, const LiveHop& hop, const TraceNames& names) {
  Json hosts = Json::array();
  for (const LiveHop::Router& router : hop.routers) {
    hosts.push_back({{"address", router.address},
                     {"name", Text(names.NameOf(router.address))},
                     {"labels", ToJson(router.labels)}});
  }
  const TimeStatistics& times = hop.times;
  const auto time = [&](double value) {
    return times.Count() == 0 ? Json(nullptr) : Json(value / 1000);
  };
  return {{"hop", number},
          {"loss_percent", hop.LossPercent()},
          {"sent", hop.sent},
          {"received", times.Count()},
          {"last_ms", time(hop.last)},
          {"avg_ms", time(times.Average())},
          {"best_ms", time(times.Minimum())},
          {"worst_ms", time(times.Maximum())},
          {"deviation_ms", time(times.Deviation())},
          {"hosts", std::move(hosts)},
          {"probes", ToJson(hop.probes)}};
}

/// What all traces have in common; `socket` of what was sent.
Json Begin(const TraceOptions& options, const TraceEnd& end, EchoSocketEnum socket) {
  constexpr const char* kKinds[] = {"icmp", "udp", "tcp"};
  return {
      {"host", options.host},
      {"address", Text(end.address)},
      {"ok", end.error == 0},
      {"probe", kKinds[options.probe]},
      {"socket", SocketName(socket)},
      {"interrupted", end.error == kCancelled},
      {"error", {{"number", end.error}, {"text", end.errorText}}},
      {"seconds", end.seconds},
      {"timeout", options.timeout},
      {"size", options.size},
  };
}

}  // namespace

void PrintTraceJson(const TraceOptions& options, const TraceEnd& end, const TraceProbes* probes,
                    const TraceNames& names) {
  Json object = Begin(options, end, probes == nullptr ? EchoSocketNone : probes->SocketUsed());
  object["hops"] = Json::array();
  for (std::size_t i = 0; probes != nullptr && i < probes->KnownHops(); ++i) {
    object["hops"].push_back(ToJson(i + 1, probes->Hop(i), names));
  }
  PrintObject(object);
}

void PrintLiveJson(const TraceOptions& options, const TraceEnd& end, const LiveTrace* trace,
                   const TraceNames& names) {
  Json object = Begin(options, end, trace == nullptr ? EchoSocketNone : trace->SocketUsed());
  object["cycles"] = trace == nullptr ? 0 : trace->Cycles();
  object["hops"] = Json::array();
  for (std::size_t i = 0; trace != nullptr && i < trace->ShownHops(); ++i) {
    object["hops"].push_back(ToJson(i + 1, trace->Hop(i), names));
  }
  PrintObject(object);
}

}  // namespace netro::tool
