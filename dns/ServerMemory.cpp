#include "dns/ServerMemory.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <numeric>
#include <utility>

#include "platform/Clock.h"

namespace netro {
namespace {

constexpr std::chrono::minutes kSilence(1);
constexpr std::chrono::hours kRefusal(1);
constexpr std::size_t kMostServers = 1'000;  // of each kind; a program may name any number

using Key = std::pair<std::string, std::int32_t>;

// Servers of which something was noted, until it is forgotten again.
class Notes {
 public:
  void Add(const DnsServer& server, TimePoint until) {
    const std::scoped_lock lock(mutex_);
    if (notes_.size() >= kMostServers) notes_.clear();
    notes_[{server.host, server.port}] = until;
  }
  void Remove(const DnsServer& server) {
    const std::scoped_lock lock(mutex_);
    if (!notes_.empty()) notes_.erase({server.host, server.port});
  }
  bool Holds(const DnsServer& server) {
    const std::scoped_lock lock(mutex_);
    const auto found = notes_.empty() ? notes_.end() : notes_.find({server.host, server.port});
    return found != notes_.end() && Now() < found->second;
  }

 private:
  std::mutex mutex_;
  std::map<Key, TimePoint> notes_;
};

// Never destroyed: a thread may still ask while the program ends.
Notes& Silent() {
  static Notes& notes = *new Notes;
  return notes;
}

Notes& WithoutEdns() {
  static Notes& notes = *new Notes;
  return notes;
}

}  // namespace

std::vector<std::size_t> ServerMemory::Order(const std::vector<DnsServer>& servers) {
  std::vector<std::size_t> order(servers.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  if (order.size() > 1) {
    std::stable_partition(order.begin(), order.end(),
                          [&](std::size_t number) { return !Silent().Holds(servers[number]); });
  }
  return order;
}

void ServerMemory::WasSilent(const DnsServer& server) { Silent().Add(server, Now() + kSilence); }

void ServerMemory::Answered(const DnsServer& server) { Silent().Remove(server); }

bool ServerMemory::RefusesEdns(const DnsServer& server) { return WithoutEdns().Holds(server); }

void ServerMemory::RefusedEdns(const DnsServer& server) {
  WithoutEdns().Add(server, Now() + kRefusal);
}

}  // namespace netro
