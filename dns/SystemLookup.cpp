// The system's calls block and cannot be stopped, so each runs on a helper thread while the caller
// pumps; a cancelled one is abandoned and ends by itself.
#include "dns/SystemLookup.h"

#include <atomic>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/HelperThread.h"
#include "platform/HostInfo.h"
#include "platform/Sockets.h"
#include "support/Text.h"

namespace netro {
namespace {

std::string Resolve(const std::string& address) {
  if (const auto ip = ParseDotted(address)) {
    std::string name = ResolveAddress(*ip);
    return IsHostName(name) ? name : std::string();
  }
  const auto found = ResolveName(address);
  return found ? FormatDotted(*found) : std::string();
}

// Lookups that hang in the system's resolver, abandoned ones among them.
constexpr int kMostHelpers = 256;
std::atomic<int> g_helpers{0};

}  // namespace

// The helper holds the waker, not the loop: a late one must not destroy a loop on its thread.
std::shared_ptr<LookupTask> BeginSystemLookup(const std::string& address, Loop& loop) {
  auto task = std::make_shared<LookupTask>();
  task->address = address;
  const bool started = ++g_helpers <= kMostHelpers &&
                       RunOnHelperThread([task, waker = loop.Notifications().SharedWaker()] {
                         task->answer = Resolve(task->address);
                         --g_helpers;
                         task->done = true;
                         waker->Wake();
                       });
  if (started) return task;
  --g_helpers;
  return nullptr;
}

LookupAnswer AskSystem(const std::string& address, const CancelMark& mark, TimePoint deadline) {
  const auto task = BeginSystemLookup(address, mark.Module().MessageLoop());
  if (!task) return {{}, kErrNoBuffers};
  const WaitEnd end = WaitUntil(mark, deadline, [&] { return task->done.load(); });
  if (end != WaitEnd::Done) return {{}, WaitError(end)};
  if (task->answer.empty()) return {{}, kErrNoDnsEntries};
  return {task->answer};
}

}  // namespace netro
