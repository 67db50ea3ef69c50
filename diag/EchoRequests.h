// The requests of one EchoCls with their deadlines. Owned by it; lives on its loop's thread.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "platform/Clock.h"
#include "platform/Echo.h"
#include "socket/SocketModule.h"

namespace netro {

class EchoRequests {
 public:
  /// Is called once for each request that was not cancelled, from the loop, and again for its
  /// duplicates; may delete the object.
  using Ended = std::function<void(std::int32_t id, const EchoOutcome& outcome)>;

  explicit EchoRequests(Ended ended);
  ~EchoRequests();
  EchoRequests(const EchoRequests&) = delete;
  EchoRequests& operator=(const EchoRequests&) = delete;

  /// Of the loop that they belong to.
  const std::shared_ptr<LoopUse>& Use() const { return module_->SharedLoop()->Use(); }

  /// For requests like this one. Returns the error number.
  std::int32_t Open(const EchoRequest& request) { return echo_.Open(request); }
  EchoSocket Kind() const { return echo_.Kind(); }
  /// Returns the request's id; 0 when there are too many.
  std::int32_t Send(const EchoRequest& request, std::chrono::milliseconds timeout);
  void Cancel(std::int32_t id);
  /// Those that have not ended.
  std::size_t Count() const { return requests_.size() - kept_.size(); }
  /// More replies to a request are told until its time is over.
  void TellDuplicates(bool tell);

 private:
  using Deadlines = std::set<std::pair<TimePoint, std::int32_t>>;

  struct Request {
    TimePoint deadline;
    std::int32_t statusThen = kIpTimedOut;
    bool answered = false;  // and kept for its duplicates
  };

  bool Remove(std::int32_t id);
  void Answered(std::int32_t id, const EchoOutcome& outcome);
  void Add(std::int32_t id, std::int32_t status, std::chrono::milliseconds timeout);
  void SetAlarm();
  void Expire();

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  const Ended ended_;
  Echo echo_;
  std::unordered_map<std::int32_t, Request> requests_;
  Deadlines deadlines_;
  // Answered ones, which the next Send forgets when their time is over, or when it needs their
  // room: no timer wakes for them.
  Deadlines kept_;
  bool tellsDuplicates_ = false;
  std::int32_t timer_ = 0;
  TimePoint timerDue_;
};

}  // namespace netro
