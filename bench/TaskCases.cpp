// Starting, ending and switching tasks; what an event costs while others sleep, and what a sleeping
// one holds of memory. Those sleep in an HTTPQuery whose server never answers.

#include "bench/TaskCases.h"

#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <deque>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Cases.h"
#include "bench/Echo.h"
#include "bench/LoadServer.h"

namespace netro::bench {
namespace {

constexpr int kManyAsleep = 10'000;

std::string_view SendBack(std::string_view received, Session& /*session*/) { return received; }
std::string_view KeepSilent(std::string_view /*received*/, Session& /*session*/) { return {}; }

/// Tasks that wait for an answer.
class Sleepers {
 public:
  explicit Sleepers(int count) {
    constexpr int kAtOnce = 500;  // connections that a server's queue surely holds
    for (int made = 0; made < count; made += kAtOnce) {
      Start(std::min(kAtOnce, count - made));
    }
  }
  ~Sleepers() {
    for (const Task& task : tasks_) {
      task.Cancel();
    }
    for (const Task& task : tasks_) {
      task.Wait();
    }
  }
  Sleepers(const Sleepers&) = delete;
  Sleepers& operator=(const Sleepers&) = delete;

  bool AllAsleep() const {
    return std::all_of(queries_.begin(), queries_.end(),
                       [](const HTTPCls& query) { return query.WaitForData(); });
  }

 private:
  void Start(int count) {
    MessageLoop& loop = MessageLoop::ForThisThread();
    for (int i = 0; i < count; ++i) {
      HTTPCls& query = queries_.emplace_back();
      query.URL("http://127.0.0.1:" + std::to_string(server_.Port()) + "/");
      query.TimeOutSeconds(3600);
      tasks_.push_back(loop.StartTask([&query] {
        bool timeout = false;
        query.HTTPQuery(timeout);
      }));
    }
    for (int attempt = 0; attempt < 1000 && !AllAsleep(); ++attempt) {
      loop.Sleep(std::chrono::milliseconds(1));
    }
  }

  const LoadServer server_{KeepSilent};
  std::deque<HTTPCls> queries_;
  std::vector<Task> tasks_;
};

double ResidentKiB() {
  std::ifstream file("/proc/self/statm");
  double all = 0;
  double resident = 0;
  file >> all >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::string FallAsleep(Stopwatch& watch) {
  MessageLoop::ForThisThread().PumpMessages();
  const double before = ResidentKiB();
  watch.Start();
  const Sleepers sleepers(kManyAsleep);
  watch.Stop();
  std::array<char, 40> note;
  std::snprintf(note.data(), note.size(), "%.1f KiB resident for each",
                (ResidentKiB() - before) / kManyAsleep);
  watch.Note(note.data());
  return sleepers.AllAsleep() ? "" : "not all tasks wait";
}

std::string EchoBesideSleepers(int asleep, int roundTrips, Stopwatch& watch) {
  const LoadServer server(SendBack);
  const Sleepers sleepers(asleep);
  return !sleepers.AllAsleep() ? "not all tasks wait"
         : server.Port() == 0  ? "no echo server"
                               : NetroEcho({0, 1, roundTrips}, server.Port(), watch);
}

constexpr int kAtOnce = 100;

/// Tasks that do nothing, by the hundred, so that what a pump costs counts little.
std::string StartAndEnd(int tasks, Stopwatch& watch) {
  MessageLoop& loop = MessageLoop::ForThisThread();
  int ended = 0;
  const auto startAndEnd = [&] {
    for (int i = 0; i < kAtOnce; ++i) {
      loop.StartTask([&ended] { ++ended; });
    }
    loop.PumpMessages();
  };
  startAndEnd();  // makes the stacks
  ended = 0;
  watch.Start();
  while (ended < tasks) {
    startAndEnd();
  }
  watch.Stop();
  return ended == tasks ? "" : "more tasks than were started";
}

/// A hundred tasks that give way to one another: each time one switch to the loop, and one to the
/// next task.
std::string Switch(int switches, Stopwatch& watch) {
  MessageLoop& loop = MessageLoop::ForThisThread();
  std::vector<Task> tasks;
  for (int i = 0; i < kAtOnce; ++i) {
    tasks.push_back(loop.StartTask([&loop, rounds = switches / kAtOnce / 2] {
      for (int round = 0; round < rounds; ++round) {
        loop.PumpMessages();
      }
    }));
  }
  watch.Start();
  for (const Task& task : tasks) {
    if (task.Wait() != 0) {
      return "a task was not started";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace

void AddTaskCases(std::uint64_t descriptors) {
  constexpr int kTasks = 1'000'000;
  constexpr int kSwitches = 4'000'000;
  AddCase({"task, start to end", "netro", "tasks", kTasks, "",
           [](Stopwatch& watch) { return StartAndEnd(kTasks, watch); }});
  AddCase({"switch to or from a task", "netro", "switches", kSwitches, "",
           [](Stopwatch& watch) { return Switch(kSwitches, watch); }});
  if (descriptors < kManyAsleep + 100) {
    std::fprintf(stderr, "left out: %d tasks asleep (only %llu descriptors)\n", kManyAsleep,
                 static_cast<unsigned long long>(descriptors));
    return;
  }
  AddCase({"tasks fall asleep in HTTPQuery", "netro", "tasks", kManyAsleep, "", FallAsleep});
  constexpr int kFew = 10;
  constexpr int kRoundTrips = 20'000;
  const auto name = [](int asleep) { return "echo, " + std::to_string(asleep) + " tasks asleep"; };
  for (const int asleep : {kFew, kManyAsleep}) {
    AddCase({name(asleep), "netro", "round trips", kRoundTrips,
             asleep == kFew ? "" : name(kFew) + "/netro", [asleep](Stopwatch& watch) {
               return EchoBesideSleepers(asleep, kRoundTrips, watch);
             }});
  }
}

}  // namespace netro::bench
