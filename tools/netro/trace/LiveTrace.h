// The probes of "netro trace --live" and "--report": one for each hop in every cycle, until it is
// stopped or has done so many. Thread: the loop's.
#pragma once

#include <netro/EchoCls.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "terminal/TimeStatistics.h"
#include "terminal/Timer.h"
#include "trace/TraceOptions.h"
#include "trace/TraceProbes.h"

namespace netro::tool {

/// What is known of a hop.
struct LiveHop {
  struct Router {
    std::string address;
    std::vector<MplsLabel> labels;  // of its latest answer
  };

  std::vector<Router> routers;  // who has answered, in the order of their first answers
  std::int32_t sent = 0;
  std::int32_t ended = 0;  // of those sent
  std::int32_t last = 0;   // microseconds of the latest answer
  TimeStatistics times;
  std::string failure;             // what the latest said instead of the usual; empty for nothing
  std::vector<TraceProbe> probes;  // if they are kept

  /// Of those whose end is known.
  double LossPercent() const { return ended == 0 ? 0 : 100.0 * (ended - times.Count()) / ended; }
};

class LiveTrace : private EchoClsEvents {
 public:
  /// Begins at once. `answered` is called with the address of everybody who answers.
  LiveTrace(std::string address, const TraceOptions& options,
            std::function<void(const std::string& host)> answered);

  /// The hops to show: those up to the destination; while it is silent up to the last that has
  /// answered and one more.
  std::size_t ShownHops() const;
  const LiveHop& Hop(std::size_t index) const { return hops_[index]; }
  std::int32_t Cycles() const { return cycles_; }
  bool IsDone() const;

  /// 0 the destination has answered, -10001, or the IP status that stands for why it has not.
  std::int32_t Error() const;
  EchoSocketEnum SocketUsed() const { return echo_.SocketUsed(); }

 private:
  void Answer(const EchoAnswer& answer) override;
  void BeginCycle();
  void SendNext();
  void Note(LiveHop& hop, const EchoAnswer& answer);
  void LookFurther();
  void FindEnd(std::size_t index, const EchoAnswer& answer);
  std::size_t AskedHops() const;

  const std::string address_;
  const TraceOptions options_;
  const std::function<void(const std::string& host)> answered_;
  EchoCls echo_;
  std::vector<LiveHop> hops_;
  std::size_t end_;                     // hops up to the destination
  std::optional<std::size_t> refusal_;  // the hop that goes no further at present
  std::size_t next_ = 0;                // of this cycle
  std::int32_t cycles_ = 0;             // begun
  std::int32_t error_ = 0;
  std::int32_t latestStatus_;
  bool reached_ = false;
  std::int32_t silent_ = 0;  // probes for the destination since it has answered
  std::unordered_map<std::int32_t, std::size_t> inFlight_;  // hops by the ids of their probes
  std::optional<Timer> cycle_;
  std::optional<Timer> pace_;  // while a cycle has probes to send
};

}  // namespace netro::tool
