// The default name lookup: the system's resolver. Its calls block and cannot be stopped, so each
// runs on a helper thread while the caller pumps; a cancelled one is abandoned and ends by itself.
#include "socket/HostLookup.h"

#include <atomic>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/HelperThread.h"
#include "platform/HostInfo.h"
#include "platform/Loop.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

struct Job {
  std::string address;
  std::string answer;
  std::atomic<bool> done{false};
};

std::string AskSystem(const std::string& address) {
  if (const auto ip = ParseDotted(address)) return ResolveAddress(*ip);
  const auto found = ResolveName(address);
  return found ? FormatDotted(*found) : std::string();
}

class SystemLookup final : public HostLookup {
 public:
  LookupAnswer Lookup(const std::string& address, const std::string& /*servers*/,
                      const CancelMark& mark, TimePoint deadline) override {
    if (address.empty() || address.find('\0') != std::string::npos) return {{}, kErrNoDnsEntries};
    const auto job = std::make_shared<Job>();
    job->address = address;
    if (!Start(job, mark.Module().MessageLoop())) return {{}, kErrNoBuffers};
    const WaitEnd end = WaitUntil(mark, deadline, [&] { return job->done.load(); });
    if (end != WaitEnd::Done) return {{}, WaitError(end)};
    if (job->answer.empty()) return {{}, kErrNoDnsEntries};
    return {job->answer, 0};
  }

  void Clear() override {}

 private:
  // The helper holds the waker, not the loop: a late one must not destroy a loop on its thread.
  static bool Start(const std::shared_ptr<Job>& job, Loop& loop) {
    return RunOnHelperThread([job, waker = loop.Notifications().SharedWaker()] {
      job->answer = AskSystem(job->address);
      job->done = true;
      waker->Wake();
    });
  }
};

}  // namespace

HostLookup& DefaultHostLookup() {
  thread_local SystemLookup lookup;
  return lookup;
}

}  // namespace netro
