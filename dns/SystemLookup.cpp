// The system's calls block and cannot be stopped, so each runs on a helper thread while the caller
// pumps; a cancelled one is abandoned and ends by itself.
#include "dns/SystemLookup.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "platform/Address.h"
#include "platform/ErrorNumbers.h"
#include "platform/HelperThread.h"
#include "platform/HostInfo.h"
#include "support/Text.h"

namespace netro {
namespace {

LookupAnswer Resolve(const std::string& address, AddressPreferenceEnum preference) {
  if (const auto ip = ParseAddress(address)) {
    std::int32_t error = 0;
    std::string name = ResolveAddress(*ip, error);
    if (error == kErrNoBuffers || error == kErrTryAgain) return {{}, error, {}};
    if (!IsHostName(name)) return {{}, kErrNoDnsEntries, {}};
    return {std::move(name), 0, {}};
  }
  const bool v6First = preference == preferIPv6 || preference == onlyIPv6;
  const bool one = preference == onlyIPv4 || preference == onlyIPv6;
  std::int32_t error = 0;
  std::int32_t otherError = 0;
  auto found = ResolveName(address, v6First ? AddressFamily::IPv6 : AddressFamily::IPv4, error);
  if (error != 0 && !one) {
    found = ResolveName(address, v6First ? AddressFamily::IPv4 : AddressFamily::IPv6, otherError);
    if (otherError == 0) error = 0;
  }
  return error == 0 ? LookupAnswer::Of(std::move(found)) : LookupAnswer{{}, error, {}};
}

// Lookups that hang in the system's resolver, abandoned ones among them.
constexpr int kMostHelpers = 256;
std::atomic<int> g_helpers{0};

}  // namespace

// The helper does not hold the loop: a late one must not destroy it on its thread.
std::shared_ptr<LookupTask> BeginSystemLookup(const std::string& address,
                                              AddressPreferenceEnum preference, Loop& loop,
                                              std::shared_ptr<CallState> call) {
  auto task = std::make_shared<LookupTask>();
  task->address = address;
  const bool started =
      ++g_helpers <= kMostHelpers &&
      RunOnHelperThread([task, preference, call = std::move(call), calls = loop.Calls()] {
        task->answer = Resolve(task->address, preference);
        --g_helpers;
        task->done = true;
        calls->Push(*call);
      });
  if (started) return task;
  --g_helpers;
  return nullptr;
}

LookupAnswer AskSystem(const std::string& address, AddressPreferenceEnum preference,
                       const CancelMark& mark, TimePoint deadline) {
  const auto task = BeginSystemLookup(address, preference, mark.MessageLoop(), mark.Object());
  if (!task) return {{}, kErrNoBuffers, {}};
  const WaitEnd end = WaitUntil(mark, deadline, [&] { return task->done.load(); });
  if (end != WaitEnd::Done) return {{}, WaitError(end), {}};
  return std::move(task->answer);
}

}  // namespace netro
