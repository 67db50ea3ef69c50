// The system's calls block and cannot be stopped, so each runs on a helper thread while the caller
// pumps; a cancelled one is abandoned and ends by itself.
#include "dns/SystemLookup.h"

#include <atomic>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/HelperThread.h"
#include "platform/HostInfo.h"
#include "platform/Loop.h"
#include "platform/Sockets.h"
#include "support/Text.h"

namespace netro {
namespace {

struct Job {
  std::string address;
  std::string answer;
  std::atomic<bool> done{false};
};

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

// The helper holds the waker, not the loop: a late one must not destroy a loop on its thread.
bool Start(const std::shared_ptr<Job>& job, Loop& loop) {
  const bool started = ++g_helpers <= kMostHelpers &&
                       RunOnHelperThread([job, waker = loop.Notifications().SharedWaker()] {
                         job->answer = Resolve(job->address);
                         --g_helpers;
                         job->done = true;
                         waker->Wake();
                       });
  if (!started) --g_helpers;
  return started;
}

}  // namespace

LookupAnswer AskSystem(const std::string& address, const CancelMark& mark, TimePoint deadline) {
  const auto job = std::make_shared<Job>();
  job->address = address;
  if (!Start(job, mark.Module().MessageLoop())) return {{}, kErrNoBuffers};
  const WaitEnd end = WaitUntil(mark, deadline, [&] { return job->done.load(); });
  if (end != WaitEnd::Done) return {{}, WaitError(end)};
  if (job->answer.empty()) return {{}, kErrNoDnsEntries};
  return {job->answer};
}

}  // namespace netro
