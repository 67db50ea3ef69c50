// The queries of a command that asks for several things, and Ctrl-C that ends them all.
//
//     Batch batch(parallel);
//     batch.Run(fetches.size(), [&](std::size_t i) { fetches[i].Run(); },
//               [&](std::size_t i) { return output.Show(fetches[i]); });
//
// Thread: the main one.
#pragma once

#include <netro/SocketCls.h>
#include <netro/Task.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace netro::tool {

/// Declares --parallel; `use` is its help text.
void DeclareParallel(CLI::App& options, std::int32_t& parallel, const std::string& use);

/// Throws UsageError.
void CheckParallel(std::int32_t parallel);

/// Says on standard error that `rest` of `all` did not begin, if there are any and somebody still
/// reads the output; `what` are they.
void TellNotBegun(std::size_t rest, std::size_t all, const std::string& what);

class Batch {
 public:
  explicit Batch(std::int32_t parallel) : parallel_(parallel) {}

  /// Calls `perform` for each index below `count`, which blocks until that query has ended, with at
  /// most so many at once; and `show` in the order of the indices, as soon as all before have been
  /// shown. When it returns false, as for want of a reader, that counts as Ctrl-C: queries under
  /// way end with 9999, and no more begin. Returns how many began, always the first; no other is
  /// shown.
  std::size_t Run(std::size_t count, std::function<void(std::size_t)> perform,
                  std::function<bool(std::size_t)> show);

  /// A query that makes several calls makes no more then.
  bool IsStopped() const { return stopped_; }

  /// Signal-safe.
  void StopWaiting();

 private:
  void Work();
  void Await(const std::vector<Task>& tasks);
  void Ended(std::size_t index);

  const std::int32_t parallel_;
  std::function<void(std::size_t)> perform_;
  std::function<bool(std::size_t)> show_;
  std::vector<bool> ended_;  // by index
  std::size_t begun_ = 0;
  std::size_t shown_ = 0;
  std::atomic<bool> stopped_ = false;
  SocketCls any_;  // whose Kill ends the calls of all
};

}  // namespace netro::tool
