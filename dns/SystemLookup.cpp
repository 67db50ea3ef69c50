// The system's calls block and cannot be stopped, so each runs on a helper thread while the caller
// pumps; a cancelled one is abandoned and ends by itself.
#include "dns/SystemLookup.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/HelperThread.h"
#include "platform/HostInfo.h"
#include "platform/Sockets.h"
#include "support/Text.h"

namespace netro {
namespace {

void Resolve(LookupTask& task) {
  task.error = kErrNoDnsEntries;
  if (const auto ip = ParseDotted(task.address)) {
    std::string name = ResolveAddress(*ip);
    if (IsHostName(name)) task.answer = std::move(name);
  } else if (const auto found = ResolveName(task.address, task.error)) {
    task.answer = FormatDotted(*found);
  }
}

// Lookups that hang in the system's resolver, abandoned ones among them.
constexpr int kMostHelpers = 256;
std::atomic<int> g_helpers{0};

}  // namespace

// The helper does not hold the loop: a late one must not destroy it on its thread.
std::shared_ptr<LookupTask> BeginSystemLookup(const std::string& address, Loop& loop,
                                              std::shared_ptr<CallState> call) {
  auto task = std::make_shared<LookupTask>();
  task->address = address;
  const bool started = ++g_helpers <= kMostHelpers &&
                       RunOnHelperThread([task, call = std::move(call), calls = loop.Calls()] {
                         Resolve(*task);
                         --g_helpers;
                         task->done = true;
                         calls->Push(*call);
                       });
  if (started) return task;
  --g_helpers;
  return nullptr;
}

LookupAnswer AskSystem(const std::string& address, const CancelMark& mark, TimePoint deadline) {
  const auto task = BeginSystemLookup(address, mark.MessageLoop(), mark.Object());
  if (!task) return {{}, kErrNoBuffers};
  const WaitEnd end = WaitUntil(mark, deadline, [&] { return task->done.load(); });
  if (end != WaitEnd::Done) return {{}, WaitError(end)};
  if (task->answer.empty()) return {{}, task->error};
  return {task->answer};
}

}  // namespace netro
