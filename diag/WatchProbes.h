// The probes of a watcher's round, all under way at the same time: names looked up, echoes and HTTP
// requests sent. Does not wait; lives on its loop's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "diag/EchoRequests.h"
#include "diag/HttpProbe.h"
#include "diag/WatchList.h"
#include "socket/HostLookup.h"
#include "socket/SocketModule.h"
#include "support/Url.h"

namespace netro {

class WatchProbes {
 public:
  /// Is called once for each probe, from the loop; null when this program lacked what it needed for
  /// it, which tells nothing about the host. May delete the probes.
  using Ended = std::function<void(std::size_t index, const ProbeResult* result)>;

  explicit WatchProbes(Ended ended);
  ~WatchProbes();
  WatchProbes(const WatchProbes&) = delete;
  WatchProbes& operator=(const WatchProbes&) = delete;

  /// Begins the probes of a round; there is none running.
  void Begin(const WatchSettings& settings, const WatchList& list,
             const std::vector<std::size_t>& indexes);
  /// Gives the running probes up: Ended is not called for them.
  void GiveUp();

 private:
  struct Probe {
    bool http = false;
    std::string host;  // to look up
    Url url;
    TimePoint begun;
    TimePoint deadline = TimePoint::max();
    std::shared_ptr<LookupTask> lookup;
    IpAddress ip;
    std::unique_ptr<HttpProbe> request;
    std::int32_t echo = 0;
  };

  void SetDeadline(std::size_t index, Probe& probe, TimePoint deadline);
  // The steps of a probe. They return false when the owner is gone.
  bool Work();
  bool Step(bool (WatchProbes::*step)(std::size_t), std::deque<std::size_t>& queue);
  bool BeginLookup(std::size_t index);
  bool TakeLookup(std::size_t index);
  bool Start(std::size_t index);
  bool StartEcho(std::size_t index, Probe& probe);
  bool StartRequest(std::size_t index, Probe& probe);
  bool Expire();
  bool Echoed(std::int32_t echo, const EchoOutcome& outcome);
  bool Answered(std::size_t index, std::int32_t error, const std::string& line);
  bool Fail(std::size_t index, std::string text);
  bool Succeed(std::size_t index, std::chrono::nanoseconds time);
  bool End(std::size_t index, const ProbeResult* result);
  void StopTimer();

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  const Ended ended_;
  std::unique_ptr<EchoRequests> echoes_;
  std::unordered_map<std::size_t, Probe> probes_;
  std::unordered_map<std::int32_t, std::size_t> byEcho_;
  std::set<std::pair<TimePoint, std::size_t>> deadlines_;
  TimePoint lastLook_;  // at the deadlines
  // Which step comes next for the probes that wait for one.
  std::deque<std::size_t> unresolved_;
  std::deque<std::size_t> resolving_;
  std::deque<std::size_t> ready_;
  std::size_t requests_ = 0;  // that are under way
  std::chrono::milliseconds echoTimeout_{0};
  std::int32_t packetSize_ = 0;
  std::chrono::seconds httpTimeout_{0};
  std::int32_t timer_ = 0;
};

}  // namespace netro
