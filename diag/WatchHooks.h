// The webhooks of a watcher's reports: each URL gets its reports in their order, one after the
// other over a connection that is kept, and again and again while its server is away. A task of the
// loop for each URL does it while any waits. On its loop's thread.
#pragma once

#include <netro/Task.h>
#include <netro/Tls.h>
#include <netro/Types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "diag/WatchNotes.h"

namespace netro {

struct WatchHook {
  Date created = 0;
  std::string url;
  std::string body;  // JSON
};

struct HookAnswer {
  std::int32_t error = 0;
  std::int32_t status = 0;  // 0: none came
  std::string text;
  std::int64_t retryAfter = -1;
};

class WatchHooks : public std::enable_shared_from_this<WatchHooks> {
 public:
  static constexpr std::size_t kMostWaiting = 10'000;  // of a URL

  explicit WatchHooks(std::shared_ptr<WatchNotes> notes) : notes_(std::move(notes)) {}

  /// For https; may be null.
  void Tls(std::shared_ptr<TlsProvider> value) { tls_ = std::move(value); }
  void Add(WatchHook hook);
  /// Sees to it that there is a task for each URL that has work.
  void Resume();
  /// Forgets what waits.
  void GiveUp();
  /// What waits, the one under way included, each as fields for Recall. Out counts those that wait
  /// no more.
  std::vector<std::vector<std::string>> Queued() const;
  void Recall(std::vector<std::string> fields);
  std::uint64_t Out() const { return out_; }
  /// Those whose server has not put the first one off.
  std::size_t Untried() const;

 private:
  struct Queue {
    std::deque<WatchHook> hooks;
    std::int32_t tries = 0;  // of the first one
    Task task;
  };

  Queue* Own(const std::string& url);
  void Work(const std::string& url);
  std::chrono::seconds Step(const std::string& url);
  HookAnswer Send(const WatchHook& hook) const;
  std::chrono::seconds Take(const std::string& url, const HookAnswer& answer);
  std::chrono::seconds Repeat(Queue& queue, const HookAnswer& answer);
  void Tell(const WatchHook& hook, const std::string& text) const;

  const std::shared_ptr<WatchNotes> notes_;
  std::shared_ptr<TlsProvider> tls_;
  std::map<std::string, Queue> queues_;  // by URL; none is empty
  std::uint64_t out_ = 0;
};

}  // namespace netro
