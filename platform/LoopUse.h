// Which thread uses a loop at present: pumps it, or is inside of a call of an object that belongs
// to it, tasks that sleep in such calls included. Objects of one thread share its loop and nothing
// in it is locked, so another thread's call is refused meanwhile, while one after the other may use
// it. Shared by the loop and its objects' states. Thread: any.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

namespace netro {

class LoopUse {
 public:
  /// Uses the loop as long as it lives; an event of the call may delete the object and, where its
  /// thread is gone, the loop with it. Within a use by the same thread that is a compare.
  class Scope {
   public:
    explicit Scope(std::shared_ptr<LoopUse> use) noexcept
        : use_(std::move(use)), kind_(use_->Enter()) {}
    ~Scope() {
      if (kind_ == Kind::Counted) use_->Leave();
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    bool Refused() const { return kind_ == Kind::Refused; }

   private:
    friend class LoopUse;
    enum class Kind { Refused, Counted, Unchecked };
    const std::shared_ptr<LoopUse> use_;
    const Kind kind_;
  };

  bool Checks() const { return checks_; }
  void Checks(bool value) { checks_ = value; }

  /// 0, or kErrOtherThread: of the calling thread's last use that began outside of all others.
  static std::int32_t LastRefusal();

 private:
  Scope::Kind Enter() noexcept;
  void Leave() noexcept {
    if (--depth_ == 0) user_.store(std::thread::id(), std::memory_order_release);
  }

  std::atomic<std::thread::id> user_{};
  int depth_ = 0;  // the user's own
  std::atomic<bool> checks_{true};
};

}  // namespace netro
