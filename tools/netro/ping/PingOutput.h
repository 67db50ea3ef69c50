// How "netro ping" shows what comes and what it came to. Thread: the loop's.
#pragma once

#include <chrono>
#include <optional>

#include "ping/Pinger.h"
#include "terminal/Terminal.h"

namespace netro::tool {

/// Prints a line for each reply, or on a terminal, where there are too many for that, how far it
/// is.
class PingPrinter final : public PingListener {
 public:
  explicit PingPrinter(const PingOptions& options) : options_(options) {}

  void NotFound(const PingTarget& target) override;
  void Begun(const PingTarget& target) override;
  bool Ended(const PingTarget& target, const PingReply& reply) override;

 private:
  using Clock = std::chrono::steady_clock;

  bool FlushIfDue();

  const PingOptions& options_;
  const bool isTerminal_ = IsTerminal(Stream::Output);
  Clock::time_point flushed_;  // when
};

/// The line on standard error that shows while nothing is printed that the command is at work.
class PingProgress {
 public:
  PingProgress(const Pinger& pinger, const PingOptions& options);
  ~PingProgress();
  PingProgress(const PingProgress&) = delete;
  PingProgress& operator=(const PingProgress&) = delete;

 private:
  void Draw();

  const Pinger& pinger_;
  const PingOptions& options_;
  std::optional<Timer> timer_;
  bool isDrawn_ = false;
};

/// Prints the statistics: some lines a host, or one if there are many.
void PrintPingStatistics(const Pinger& pinger, const PingOptions& options);

/// Prints the JSON object. `seconds` is how long the run took.
void PrintPingJson(const Pinger& pinger, const PingOptions& options, double seconds);

/// The lines of --json-lines. False when nobody reads them any more.
bool PrintJsonLine(const PingTarget& target, const PingReply& reply);
void PrintJsonEnd(const Pinger& pinger, const PingOptions& options, double seconds);

}  // namespace netro::tool
