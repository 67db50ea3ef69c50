// What the examples of hosts have in common. The host's own timer ticks every 10 ms: first for a
// second with nothing else to do, then while 20 pages are fetched and 100 names resolved at once,
// each by a task that makes one plain blocking call. The servers take a second for each answer, and
// so should all of it; and the host must not notice.
#pragma once

#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <netro/Task.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "LateServers.h"
#include "TickCount.h"

class ManyCalls {
 public:
  static constexpr std::chrono::milliseconds kTick{10};

  /// The loop runs `finished` at the end.
  explicit ManyCalls(std::function<void()> finished) : finished_(std::move(finished)) {}
  /// What a task uses must outlive it, so whoever owns that waits for the task.
  ~ManyCalls() {
    for (const netro::Task& task : tasks_) task.Cancel();
    for (const netro::Task& task : tasks_) task.Wait();
  }
  ManyCalls(const ManyCalls&) = delete;
  ManyCalls& operator=(const ManyCalls&) = delete;

  /// For the host's timer.
  void Tick() {
    ticks_.Tick();
    if (tasks_.empty() && ticks_.Seconds() >= 1) StartCalls();
  }

  /// The exit status of the program.
  int Result() const { return passed_ ? 0 : 1; }

 private:
  static constexpr int kPages = 20;
  static constexpr int kNames = 100;

  void StartCalls() {
    ticksAlone_ = ticks_.PerSecond();
    ticks_.Begin();
    right_ = ended_ = 0;
    netro::SocketCls().ClearDNSCache();
    for (int i = 0; i < kPages; ++i) StartCall([this, i] { return FetchPage(i); });
    for (int i = 0; i < kNames; ++i) StartCall([this, i] { return ResolveName(i); });
  }

  template <class Call>
  void StartCall(Call call) {
    tasks_.push_back(loop_.StartTask([this, call] {
      right_ += call() ? 1 : 0;
      if (++ended_ == kPages + kNames) AllCallsEnded();
    }));
  }

  bool FetchPage(int number) {
    netro::HTTPCls http;
    http.URL(servers_.URL(number));
    bool timeout = false;
    return http.HTTPQuery(timeout).ends_with("\r\n\r\n" + LateServers::Page(number));
  }

  bool ResolveName(int number) {
    netro::SocketCls socket;
    socket.DNSURL(servers_.DNSURL());
    return socket.DNSLookup(LateServers::Name(number)) == LateServers::Address(number);
  }

  void AllCallsEnded() {
    std::printf("%d of %d answers in %.2f s; %.1f ticks a second before, %.1f meanwhile\n", right_,
                ended_, ticks_.Seconds(), ticksAlone_, ticks_.PerSecond());
    passed_ = right_ == ended_ && ticks_.Seconds() < 3 && ticks_.IsAsGoodAs(ticksAlone_);
    if (passed_ || ++rounds_ == TickCount::kMostRounds) return loop_.PostTask(finished_);
    tasks_.clear();
    ticks_.Begin();
  }

  LateServers servers_;
  netro::MessageLoop& loop_ = netro::MessageLoop::ForThisThread();
  std::function<void()> finished_;
  std::vector<netro::Task> tasks_;
  TickCount ticks_;
  double ticksAlone_ = 0;
  int right_ = 0;
  int ended_ = 0;
  int rounds_ = 0;
  bool passed_ = false;
};
