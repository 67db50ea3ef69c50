#include "web/HttpPool.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/Loop.h"
#include "platform/PerThread.h"
#include "socket/OpenConnection.h"

namespace netro {
namespace {

constexpr std::chrono::seconds kLongestIdle(15);
constexpr std::size_t kMostIdle = 32;

}  // namespace

class HttpPool::Idle final : private SocketClsEvents {
 public:
  Idle(HttpPool& pool, std::string given, std::unique_ptr<SocketCls> connection,
       std::shared_ptr<const void> meant)
      : key(std::move(given)),
        until(Now() + kLongestIdle),
        pool_(pool),
        meant_(std::move(meant)),
        socket_(std::move(connection)) {
    SocketOwner::Release(*socket_);
    socket_->Events(this);
  }

  std::unique_ptr<SocketCls> TakeOut() {
    socket_->Events(nullptr);
    return std::move(socket_);
  }

  const std::string key;
  const TimePoint until;

 private:
  void Closed() override { pool_.Drop(*this); }
  void DataArrival(const Bytes&, const std::string&) override { pool_.Drop(*this); }

  HttpPool& pool_;
  const std::shared_ptr<const void> meant_;
  std::unique_ptr<SocketCls> socket_;
};

const std::shared_ptr<HttpPool>& HttpPool::ForThread() {
  return PerThread<HttpPool>([] {
    const auto loop = SocketModule::ForThread()->SharedLoop();
    return std::make_shared<HttpPool>(loop);
  });
}

HttpPool::HttpPool(std::shared_ptr<Loop> loop) : loop_(std::move(loop)) {}

HttpPool::~HttpPool() = default;

void HttpPool::ThreadEnds() { idle_.clear(); }

std::unique_ptr<SocketCls> HttpPool::Take(const std::string& key) {
  DropOld();
  const auto found = std::ranges::find_if(idle_, [&](const auto& idle) { return idle->key == key; });
  if (found == idle_.end()) return nullptr;
  const auto idle = std::move(*found);
  idle_.erase(found);
  return idle->TakeOut();
}

void HttpPool::Give(std::string key, std::unique_ptr<SocketCls> socket,
                    std::shared_ptr<const void> meant) {
  idle_.push_front(
      std::make_unique<Idle>(*this, std::move(key), std::move(socket), std::move(meant)));
  if (idle_.size() > kMostIdle) idle_.pop_back();
  SetAlarm();
}

bool HttpPool::Clear() {
  const bool had = !idle_.empty();
  idle_.clear();
  return had;
}

void HttpPool::Drop(const Idle& idle) {
  idle_.remove_if([&](const auto& one) { return one.get() == &idle; });
}

void HttpPool::DropOld() {
  const TimePoint now = Now();
  while (!idle_.empty() && idle_.back()->until <= now) idle_.pop_back();
}

// One timer for the oldest: it is asked again when that one may be gone.
void HttpPool::SetAlarm() {
  if (timer_ != 0) return;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(idle_.back()->until - Now());
  const std::weak_ptr<HttpPool> weak = weak_from_this();
  timer_ = loop_->SetTimer(static_cast<std::int32_t>(wait.count()), [weak] {
    const auto pool = weak.lock();
    if (pool == nullptr) return;
    pool->loop_->KillTimer(std::exchange(pool->timer_, 0));
    pool->DropOld();
    if (!pool->idle_.empty()) pool->SetAlarm();
  });
}

}  // namespace netro
