#include "dns/ServerDiscovery.h"

#include <chrono>
#include <unordered_set>
#include <vector>

#include "platform/Echo.h"
#include "platform/Loop.h"
#include "platform/ResolverConfig.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

constexpr std::chrono::milliseconds kEchoTime(500);

// One question to each server.
class Probes {
 public:
  explicit Probes(const CancelMark& mark)
      : echo_(mark.Module().Notifications(),
              [this, &mark](std::int32_t number, const EchoOutcome& outcome) {
                mark.Object()->Changed();
                --open_;
                if (outcome.status == kIpSuccess) answered_.insert(number);
              }) {}

  // False when nobody can be asked.
  bool AskAll(const std::vector<std::string>& servers) {
    if (echo_.Open() != 0) return false;
    echo_.SetAwaited();
    for (const std::string& server : servers) {
      Probe& probe = probes_.emplace_back();
      probe.server = server;
      const auto ip = ParseDotted(server);
      if (ip && echo_.Send({*ip}, probe.number) == kIpSuccess) ++open_;
    }
    return true;
  }

  bool AllEnded() const { return open_ == 0; }

  std::vector<std::string> Answering() const {
    std::vector<std::string> servers;
    for (const Probe& probe : probes_) {
      if (answered_.contains(probe.number)) servers.push_back(probe.server);
    }
    return servers;
  }

 private:
  struct Probe {
    std::string server;
    std::int32_t number = 0;
  };

  Echo echo_;
  std::vector<Probe> probes_;
  std::unordered_set<std::int32_t> answered_;
  std::size_t open_ = 0;
};

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
  Probes probes(mark);
  // A single server is the list, whatever it answers.
  if (servers.size() > 1 && probes.AskAll(servers)) {
    WaitUntil(mark, Now() + kEchoTime, [&] { return probes.AllEnded(); });
    answering = probes.Answering();
  }
  complete = !mark.Cancelled();
  return Join(complete && !answering.empty() ? answering : servers);
}

}  // namespace netro
