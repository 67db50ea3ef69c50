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
  /// Is called once for each request that was not cancelled, from the loop; may delete the object.
  using Ended = std::function<void(std::int32_t id, const EchoOutcome& outcome)>;

  explicit EchoRequests(Ended ended);
  ~EchoRequests();
  EchoRequests(const EchoRequests&) = delete;
  EchoRequests& operator=(const EchoRequests&) = delete;

  /// For addresses like this one. Returns the error number.
  std::int32_t Open(const IpAddress& ip) { return echo_.Open(ip); }
  EchoSocket Kind() const { return echo_.Kind(); }
  /// Returns the request's id; 0 when there are too many.
  std::int32_t Send(const EchoRequest& request, std::chrono::milliseconds timeout);
  void Cancel(std::int32_t id);
  std::size_t Count() const { return requests_.size(); }

 private:
  struct Request {
    TimePoint deadline;
    std::int32_t statusThen = kIpTimedOut;
  };

  bool Remove(std::int32_t id);
  void Answered(std::int32_t id, const EchoOutcome& outcome);
  void SetAlarm();
  void Expire();

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  const Ended ended_;
  Echo echo_;
  std::unordered_map<std::int32_t, Request> requests_;
  std::set<std::pair<TimePoint, std::int32_t>> deadlines_;
  std::int32_t timer_ = 0;
  TimePoint timerDue_;
};

}  // namespace netro
