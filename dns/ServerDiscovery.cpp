#include "dns/ServerDiscovery.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <vector>

#include "platform/Echo.h"
#include "platform/Loop.h"
#include "platform/ResolverConfig.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

constexpr std::chrono::milliseconds kEchoTime(500);
constexpr std::size_t kMostAsked = 64;  // each needs a descriptor

// One question to one server.
struct Probe {
  Probe(const std::string& text, Notifier& notifier) : server(text), echo(notifier) {}

  std::string server;
  Echo echo;
  bool sent = false;
};

using Probes = std::list<Probe>;

// False when one of them cannot be asked at all; then the answers of the others would mislead.
bool AskAll(const std::vector<std::string>& servers, Notifier& notifier, Probes& probes) {
  if (servers.size() > kMostAsked) return false;
  for (const std::string& server : servers) {
    Probe& probe = probes.emplace_back(server, notifier);
    if (probe.echo.Open() != 0) return false;
    const auto ip = ParseDotted(server);
    probe.sent = ip && probe.echo.Send(*ip, {}) == 0;
  }
  return true;
}

bool AllAnswered(const Probes& probes) {
  return std::ranges::all_of(
      probes, [](const Probe& probe) { return !probe.sent || probe.echo.Answered(); });
}

std::vector<std::string> Answering(const Probes& probes) {
  std::vector<std::string> servers;
  for (const Probe& probe : probes) {
    if (probe.echo.Answered()) servers.push_back(probe.server);
  }
  return servers;
}

std::string Join(const std::vector<std::string>& servers) {
  std::string list;
  for (const std::string& server : servers) {
    if (!list.empty()) list += ',';
    list += server;
  }
  return list;
}

}  // namespace

std::string DiscoverServerList(const CancelMark& mark, bool& complete) {
  complete = false;
  const std::vector<std::string> servers = ReadResolverConfig().servers;
  if (servers.empty()) return {};
  std::vector<std::string> answering;
  Probes probes;
  if (AskAll(servers, mark.Module().Notifications(), probes)) {
    WaitUntil(mark, Now() + kEchoTime, [&] { return AllAnswered(probes); });
    answering = Answering(probes);
  }
  complete = !mark.Cancelled();
  return Join(complete && !answering.empty() ? answering : servers);
}

}  // namespace netro
