// The probes of "netro trace": echo requests with every time to live, all in flight together.
// Thread: the loop's.
#pragma once

#include <netro/EchoCls.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "terminal/Timer.h"
#include "trace/TraceOptions.h"

namespace netro::tool {

/// How a probe ended.
struct TraceProbe {
  std::string host;  // who answered; empty: nobody
  std::int32_t microSeconds = 0;
  std::int32_t status = 0;  // an IP status, see EchoClsEvents::Reply
  std::vector<MplsLabel> labels{};
  bool isFiltered = false;
};

// IP statuses, see docs/diagnostics.md.
constexpr std::int32_t kTraceTimedOut = 11010;
constexpr std::int32_t kTraceExpired = 11013;  // the time to live, which is how routers answer
/// True when the network goes no further there, however long a probe may live.
bool IsTraceRefusal(const std::string& host, std::int32_t status);

/// The status of an answer. That nobody listens at the port of a UDP probe is the destination's
/// reply.
std::int32_t TraceStatus(const EchoAnswer& answer, const std::string& destination,
                         EchoProbeEnum probe);

struct TraceHop {
  std::vector<TraceProbe> probes;
  std::int32_t ended = 0;  // probes whose outcome is known
};

class TraceProbes : private EchoClsEvents {
 public:
  /// Begins at once. `answered` is called with the address of everybody who answers.
  TraceProbes(std::string address, const TraceOptions& options,
              std::function<void(const std::string& host)> answered);

  /// The hops whose outcome, and that of all before them, is known; the first has index 0.
  std::size_t KnownHops() const { return known_; }
  const TraceHop& Hop(std::size_t index) const { return hops_[index]; }
  /// No more hops will become known.
  bool IsDone() const { return error_ != 0 || known_ == end_; }

  /// Of the whole trace: 0 the destination has answered, -10001, or the IP status that stands for
  /// why it has not.
  std::int32_t Error() const;
  EchoSocketEnum SocketUsed() const { return echo_.SocketUsed(); }

 private:
  struct Position {
    std::size_t hop = 0;
    std::size_t probe = 0;
  };

  void Answer(const EchoAnswer& answer) override;
  void SendNext();
  void EndAt(std::size_t hop);
  void CountKnown();
  void LimitWait();
  void GiveUp();
  bool IsEnd(const TraceProbe& probe) const;

  const std::string address_;
  const TraceOptions options_;
  const std::function<void(const std::string& host)> answered_;
  EchoCls echo_;
  std::vector<TraceHop> hops_;
  std::size_t known_ = 0;
  std::size_t end_;       // hops up to the destination, or to where it goes no further
  std::size_t next_ = 0;  // probe to send, counted over all hops first
  std::int32_t error_ = 0;
  bool reached_ = false;
  std::int32_t slowest_ = 0;  // microseconds
  std::unordered_map<std::int32_t, Position> inFlight_;
  std::optional<Timer> pace_;   // while there are probes to send
  std::optional<Timer> limit_;  // for those that are still out when the destination has answered
};

}  // namespace netro::tool
