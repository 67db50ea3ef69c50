#include "Soak.h"

#include <netro/MessageLoop.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

namespace netro::torture {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr int kRounds = 10;
constexpr std::ptrdiff_t kSlack = 64;  // blocks: caches that grow by turns
constexpr std::ptrdiff_t kKept = 8;    // ends of connections that may be kept, or not
constexpr std::size_t kTold = 5;       // violations of one scenario

// One scenario, again and again.
class Player {
 public:
  Player(Scenario scenario, std::size_t number)
      : scenario_(std::move(scenario)), chance_(static_cast<unsigned>(number)) {
    subject_ = scenario_.make(world_);
  }

  void PlayUntil(steady_clock::time_point end) {
    while (steady_clock::now() < end) Once();
    Clear();
  }
  /// From the thread that cancels.
  void CancelIfDue() {
    const std::lock_guard lock(mutex_);
    if (cancelAt_ && steady_clock::now() >= *cancelAt_ && subject_.cancel) subject_.cancel();
  }
  std::size_t Calls() const { return calls_; }
  std::size_t Violations() const { return violations_; }

 private:
  long Upto(long most) { return std::uniform_int_distribution<long>(0, most)(chance_); }

  void Clear() {
    const std::lock_guard lock(mutex_);
    cancelAt_.reset();
    world_.events.Never();
    world_.cut.Never();
  }

  // A third of the calls nothing happens to.
  bool Disturb() {
    const std::lock_guard lock(mutex_);
    const auto direction = Upto(1) == 0 ? Cut::FromServer : Cut::FromClient;
    const auto now = steady_clock::now();
    switch (Upto(8)) {
      case 0:
      case 1:
        world_.cut.At(direction, 1 + Upto(Upto(1) == 0 ? 30 : 800), Cut::Closed);
        return true;
      case 2:
        world_.cut.At(direction, 1 + Upto(800), Cut::Reset);
        return true;
      case 3:
        if (!subject_.cancel) return false;  // it may wait for ever
        world_.cut.At(direction, 1 + Upto(400), Cut::Silent);
        cancelAt_ = now + 3s;
        return true;
      case 4:
        cancelAt_ = now + std::chrono::microseconds(Upto(20'000));
        return true;
      case 5:
        world_.events.At(static_cast<std::size_t>(Upto(6)), [this] { Destroy(); });
        return true;
      default:
        return false;
    }
  }

  void Destroy() {
    const std::lock_guard lock(mutex_);
    cancelAt_.reset();
    subject_.destroy();
    isGone_ = true;
  }

  void Once() {
    const bool disturbed = Disturb();
    const std::int32_t result = subject_.run();
    Clear();
    if (result == kWrongResult || result == kNoNumber || (!disturbed && result != kDone)) {
      if (++violations_ <= kTold) Tell(result, disturbed);
    }
    ++calls_;
    if (std::exchange(isGone_, false)) subject_ = scenario_.make(world_);
    // Others have their turn where a call never waited.
    MessageLoop::ForThisThread().Sleep(1ms);
  }

  void Tell(std::int32_t result, bool disturbed) const {
    std::printf("VIOLATION %s, call %zu: %d%s\n", scenario_.name.c_str(), calls_, result,
                disturbed ? "" : " though nothing happened to it");
  }

  const Scenario scenario_;
  World world_;
  Subject subject_;
  std::mt19937 chance_;
  bool isGone_ = false;
  std::size_t calls_ = 0;
  std::size_t violations_ = 0;
  std::mutex mutex_;
  std::optional<steady_clock::time_point> cancelAt_;
};

std::ptrdiff_t EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

long ResidentPages() {
  long all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident;
}

struct Left {
  std::ptrdiff_t blocks, descriptors, threads;

  static Left Now() {
    return {LiveBlocks(), EntriesOf("/proc/self/fd"), EntriesOf("/proc/self/task")};
  }
  bool IsMoreThan(const Left& other) const {
    return blocks > other.blocks + kSlack || descriptors > other.descriptors + kKept ||
           threads > other.threads + kKept;
  }
};

// The peers notice that a connection has ended a moment later.
Left Settled(const std::optional<Left>& wanted) {
  const auto limit = steady_clock::now() + 5s;
  do {
    MessageLoop::ForThisThread().Sleep(50ms);
  } while (wanted && Left::Now().IsMoreThan(*wanted) && steady_clock::now() < limit);
  return Left::Now();
}

void Play(std::list<Player>& players, steady_clock::duration time) {
  MessageLoop& loop = MessageLoop::ForThisThread();
  const auto end = steady_clock::now() + time;
  std::jthread canceller([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      for (Player& player : players) player.CancelIfDue();
      std::this_thread::sleep_for(2ms);
    }
  });
  std::vector<Task> tasks;
  for (Player& player : players) {
    tasks.push_back(loop.StartTask([&player, end] { player.PlayUntil(end); }));
  }
  for (Task& task : tasks) task.Wait();
}

template <class Count>
std::size_t Sum(const std::list<Player>& players, Count count) {
  std::size_t sum = 0;
  for (const Player& player : players) sum += (player.*count)();
  return sum;
}

}  // namespace

int Soak(std::vector<Scenario> scenarios, std::chrono::seconds time) {
  std::list<Player> players;
  for (Scenario& scenario : scenarios) {
    if (scenario.alone) continue;
    players.emplace_back(std::move(scenario), players.size());
  }
  std::optional<Left> wanted;
  std::size_t grown = 0;
  for (int round = 0; round < kRounds; ++round) {
    Play(players, steady_clock::duration(time) / kRounds);
    const Left left = Settled(wanted);
    std::printf("%8zu calls: %td blocks, %td descriptors, %td threads, %ld pages\n",
                Sum(players, &Player::Calls), left.blocks, left.descriptors, left.threads,
                ResidentPages());
    std::fflush(stdout);
    if (round == 1) wanted = left;
    if (wanted && left.IsMoreThan(*wanted)) ++grown;
  }
  const std::size_t violations = Sum(players, &Player::Violations) + grown;
  std::printf("%zu calls of %zu scenarios, %zu violations\n", Sum(players, &Player::Calls),
              players.size(), violations);
  return violations == 0 ? 0 : 1;
}

}  // namespace netro::torture
