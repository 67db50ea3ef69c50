// The work of "netro ping": looks the hosts up, then asks all of them for an echo at each interval,
// from one loop. Thread: the loop's.
#pragma once

#include <netro/EchoCls.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ping/PingOptions.h"
#include "ping/PingTarget.h"
#include "terminal/Batch.h"
#include "terminal/StoppableLoop.h"
#include "terminal/Timer.h"

namespace netro::tool {

/// Hears what happens.
class PingListener {
 public:
  virtual ~PingListener() = default;
  /// The host has no address.
  virtual void NotFound(const PingTarget& target) = 0;
  /// The host has been sent its first request.
  virtual void Begun(const PingTarget& target) = 0;
  /// A request has ended. False ends the run.
  virtual bool Ended(const PingTarget& target, const PingReply& reply) = 0;
};

class Pinger final : private EchoClsEvents {
 public:
  Pinger(const PingOptions& options, PingListener& listener);

  /// Returns when the last request has ended, or earlier.
  void Run();
  /// Ends Run. Signal-safe.
  void StopWaiting() {
    loop_.StopWaiting();
    lookups_.StopWaiting();
  }

  const std::vector<PingTarget>& Targets() const { return targets_; }
  /// Requests that each host has been sent.
  std::int32_t Rounds() const { return rounds_; }
  std::int32_t AnsweredHosts() const { return answeredHosts_; }
  bool HaveAllAnswered() const {
    return static_cast<std::size_t>(answeredHosts_) == targets_.size();
  }
  bool IsStopped() const { return loop_.IsStopped(); }
  /// True when the system allows no echo.
  bool IsForbidden() const { return isForbidden_; }
  EchoSocketEnum SocketUsed() const { return echo_.SocketUsed(); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Request {
    std::size_t target = 0;
    std::int32_t sequence = 0;
  };

  void LookUpAll();
  void LookUp(PingTarget& target);
  void SendRound();
  void SendTo(std::size_t target);
  void Answer(const EchoAnswer& answer) override;
  void ForgetOldRequests();
  void Note(PingTarget& target, PingReply reply);
  void EndIfDone();
  bool IsDone() const;

  const PingOptions& options_;
  PingListener& listener_;
  StoppableLoop loop_;
  EchoCls echo_;
  std::vector<PingTarget> targets_;
  Batch lookups_;
  std::unordered_map<std::int32_t, Request> requests_;  // by their id
  // Those that have been answered, and when: they may be again.
  std::deque<std::pair<Clock::time_point, std::int32_t>> answered_;
  std::optional<Timer> timer_;
  std::optional<Timer> deadline_;
  bool isOver_ = false;  // says the deadline
  std::int32_t rounds_ = 0;
  std::int32_t answeredHosts_ = 0;
  bool isForbidden_ = false;
  bool isEnough_ = false;  // says the listener
};

}  // namespace netro::tool
