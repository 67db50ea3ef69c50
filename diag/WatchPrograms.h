// The programs of a watcher's reports: at most 16 run at a time, the others wait, and one that
// takes too long is ended. They are started from a task of the loop, which is there while any waits
// or runs. One that the system cannot start at present is tried again. On its loop's thread.
#pragma once

#include <netro/Task.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "diag/WatchNotes.h"
#include "platform/Clock.h"
#include "platform/Program.h"

namespace netro {

struct WatchProgram {
  std::string program;
  std::vector<std::string> parameters;
  WatchFacts facts;
  bool told = false;  // that it had to wait
};

class WatchPrograms : public std::enable_shared_from_this<WatchPrograms> {
 public:
  static constexpr std::size_t kMostRunning = 16;
  static constexpr std::size_t kMostWaiting = 10'000;

  explicit WatchPrograms(std::shared_ptr<WatchNotes> notes) : notes_(std::move(notes)) {}

  /// The time that each has which is started from now on.
  void Limit(std::chrono::seconds value) { limit_ = value; }
  /// Queues it. One that can not be queued any more is told.
  void Add(WatchProgram program);
  /// Sees to it that there is a task while there is work.
  void Resume();
  /// Forgets those that wait. What runs goes on, as does its limit.
  void GiveUp() { waiting_.clear(); }

  /// Those that are not started yet, each as fields for Recall. Out counts those that were.
  std::vector<std::vector<std::string>> Queued() const;
  void Recall(std::vector<std::string> fields);
  std::uint64_t Out() const { return out_; }
  /// That are not started yet.
  std::size_t Waiting() const { return waiting_.size(); }

 private:
  struct Running {
    WatchProgram what;
    RunningProgram program;
    TimePoint deadline;
    std::chrono::seconds limit;
  };

  bool HasWork() const { return !waiting_.empty() || !running_.empty(); }
  void Work();
  bool StartOne();
  void Start(WatchProgram& what);
  bool Look();
  void TellNotStarted(const WatchProgram& what, const std::string& fault) const;
  void Tell(const WatchProgram& what, const std::string& text) const;

  const std::shared_ptr<WatchNotes> notes_;
  std::chrono::seconds limit_{60};
  std::deque<WatchProgram> waiting_;
  std::uint64_t out_ = 0;
  std::vector<Running> running_;
  Task task_;
};

}  // namespace netro
