// The names of a thread: the cache first, then the hosts file, then the DNS servers that the caller
// has named, or else the system's resolver.
#include "socket/HostLookup.h"

#include <memory>
#include <new>
#include <utility>

#include "dns/LookupCache.h"
#include "dns/ServerDiscovery.h"
#include "dns/ServerLookup.h"
#include "dns/SystemLookup.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostsFile.h"
#include "platform/PerThread.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

std::string AskHostsFile(const std::string& address) {
  if (const auto ip = ParseDotted(address)) return HostsFileName(*ip);
  const auto ip = HostsFileAddress(address);
  return ip ? FormatDotted(*ip) : std::string();
}

class Names final : public HostLookup {
 public:
  LookupAnswer Lookup(std::string address, std::optional<std::string> servers,
                      const CancelMark& mark, TimePoint deadline) override try {
    if (address.empty() || address.find('\0') != std::string::npos) return {{}, kErrNoDnsEntries};
    if (auto known = cache_.Find(address)) return {std::move(*known)};
    LookupAnswer answer = Ask(address, servers, mark, deadline);
    if (answer.error == 0) cache_.Insert(address, answer.text);
    return answer;
  } catch (const std::bad_alloc&) {
    return {{}, kErrNoBuffers};
  }

  std::shared_ptr<LookupTask> Begin(std::string name) override {
    auto known = cache_.Find(name);
    const bool isCached = known.has_value();
    if (!isCached) known = AskHostsFile(name);
    if (known->empty())
      return BeginSystemLookup(name, *Loop::ForThread(), std::make_shared<CallState>());
    auto task = std::make_shared<LookupTask>();
    task->isCached = isCached;
    task->address = std::move(name);
    task->answer = std::move(*known);
    task->done = true;
    return task;
  }

  LookupAnswer Finish(const LookupTask& task) override {
    if (task.answer.empty()) return {{}, task.error};
    if (!task.isCached) cache_.Insert(task.address, task.answer);
    return {task.answer};
  }

  const std::string& DefaultServers(const CancelMark& mark) override {
    if (discovered_) return defaultServers_;
    bool complete = false;
    std::string servers = DiscoverServerList(mark, complete);
    if (!discovered_) {  // by a call inside the wait
      defaultServers_ = std::move(servers);
      discovered_ = complete;
    }
    return defaultServers_;
  }

  void Clear() override { cache_.Clear(); }
  std::int32_t Count() const override { return cache_.Count(); }
  std::int32_t Save(const std::string& fileName) override { return cache_.Save(fileName); }
  std::int32_t Restore(const std::string& fileName) override { return cache_.Restore(fileName); }

  void ThreadEnds() {}

 private:
  LookupAnswer Ask(const std::string& address, const std::optional<std::string>& list,
                   const CancelMark& mark, TimePoint deadline) {
    if (std::string known = AskHostsFile(address); !known.empty()) return {std::move(known)};
    const auto servers = ParseServerList(list ? *list : DefaultServers(mark));
    if (!servers) return {{}, kErrInvalidArgument};
    if (mark.Cancelled()) return {{}, kErrCancelled};
    return servers->empty() ? AskSystem(address, mark, deadline)
                            : AskServers(*servers, address, mark, deadline);
  }

  LookupCache cache_;
  std::string defaultServers_;
  bool discovered_ = false;
};

}  // namespace

HostLookup& DefaultHostLookup() {
  return *PerThread<Names>([] { return std::make_shared<Names>(); });
}

}  // namespace netro
