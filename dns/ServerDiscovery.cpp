#include "dns/ServerDiscovery.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <vector>

#include "platform/Address.h"
#include "platform/Echo.h"
#include "platform/Loop.h"
#include "platform/ResolverConfig.h"

namespace netro {
namespace {

constexpr std::chrono::milliseconds kEchoTime(500);

// One question to each server.
class Probes {
 public:
  explicit Probes(const CancelMark& mark)
      : echo_(mark.Module().Echoes(),
              [this, &mark](std::int32_t number, const EchoOutcome& outcome) {
                mark.Object()->Changed();
                --open_;
                if (outcome.status == kIpSuccess) answered_.insert(number);
              }) {}

  void AskAll(const std::vector<std::string>& servers) {
    echo_.SetAwaited();
    for (const std::string& server : servers) {
      Probe& probe = probes_.emplace_back();
      probe.server = server;
      const auto ip = ParseAddress(server);
      if (!ip || echo_.Open({*ip}) != 0) continue;
      if (echo_.Send({*ip}, kEchoTime, probe.number) == kIpSuccess) ++open_;
    }
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

// The list that one thread has made, for the others.
class Shared {
 public:
  // Never destroyed: a thread may still ask while the program ends.
  static Shared& Get() {
    static Shared& shared = *new Shared;
    return shared;
  }
  std::optional<std::string> Find(std::uint64_t stamp) {
    const std::scoped_lock lock(mutex_);
    return stamp_ == stamp ? list_ : std::nullopt;
  }
  void Keep(std::uint64_t stamp, const std::string& list) {
    const std::scoped_lock lock(mutex_);
    stamp_ = stamp;
    list_ = list;
  }

 private:
  std::mutex mutex_;
  std::uint64_t stamp_ = 0;
  std::optional<std::string> list_;
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
  if (servers.size() > 1) {
    probes.AskAll(servers);
    WaitUntil(mark, Now() + kEchoTime, [&] { return probes.AllEnded(); });
    answering = probes.Answering();
  }
  complete = !mark.Cancelled();
  return Join(complete && !answering.empty() ? answering : servers);
}

std::string SharedServerList(const CancelMark& mark, std::uint64_t stamp, bool& complete) {
  if (auto known = Shared::Get().Find(stamp)) {
    complete = true;
    return *std::move(known);
  }
  std::string list = DiscoverServerList(mark, complete);
  if (complete) Shared::Get().Keep(stamp, list);
  return list;
}

}  // namespace netro
