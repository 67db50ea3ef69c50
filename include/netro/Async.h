// Blocking calls without a task in sight: a call is run as a task of this thread's loop, and its
// result comes to a callback, or to a coroutine that awaits it. Any number run side by side.
//
//   netro::Async([url] { return Fetch(url); }, [](std::string page) { Show(page); });
//
//   const std::string page = co_await netro::Await([&] { return Fetch(url); });
//
// The call begins with the next pump. Inside it, Task::Current() is its task, which may be given a
// deadline. A cancelled call comes to its end like others, and its result is told.
//
// Callbacks and coroutines go on from PumpMessages, RunLoop or a blocking call, on the loop's stack
// and outside of the task, never inside Async or co_await. (Only where there is no memory to queue
// them they go on in the task.) At the end of the thread the calls are cancelled and end, but
// nobody is told any more.
#pragma once

#include <netro/MessageLoop.h>

#include <coroutine>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace netro {

/// A call, and what it has come to. For the two below.
template <class Function>
class AsyncCall {
 public:
  /// What the call returns.
  using Result = std::remove_cv_t<std::invoke_result_t<Function&>>;

  /// The call is kept here until it has run.
  explicit AsyncCall(Function call) : call_(std::move(call)) {}

  /// Keeps what the call returns or throws.
  void Run() {
    try {
      if constexpr (std::is_void_v<Result>) {
        std::invoke(call_);
        result_.set_value();
      } else {
        result_.set_value(std::invoke(call_));
      }
    } catch (...) {
      result_.set_exception(std::current_exception());
    }
  }

  /// Returns or throws what the call has. Once.
  Result Take() { return result_.get_future().get(); }

 private:
  Function call_;
  std::promise<Result> result_;
};

/// Has the loop run `next`; runs it at once when there is no memory for that.
template <class Function>
void AsyncPost(const Function& next) {
  try {
    return MessageLoop::ForThisThread().PostTask(next);
  } catch (const std::bad_alloc&) {
  }
  next();
}

/// Runs `Call()` as a task, then `Done(result)`, or `Done()` when there is none. Both may be
/// move-only; a result is moved, a reference stays one. What the call throws goes out of the pump,
/// in place of Done. Error() of the returned task tells whether it was started; if not, neither is
/// run. Cancel makes Done come soon, it does not keep it away.
template <class Function, class Callback>
Task Async(Function Call, Callback Done, std::size_t StackSize = Task::UsualStack) {
  struct Job {
    AsyncCall<Function> call;
    Callback done;
    void Deliver() {
      if constexpr (std::is_void_v<typename AsyncCall<Function>::Result>) {
        call.Take();
        std::invoke(done);
      } else {
        std::invoke(done, call.Take());
      }
    }
  };
  const std::shared_ptr<Job> job(new Job{AsyncCall(std::move(Call)), std::move(Done)});
  const auto work = [job] {
    job->call.Run();
    AsyncPost([job] { job->Deliver(); });
  };
  return MessageLoop::ForThisThread().StartTask(work, StackSize);
}

/// `co_await Await(Call)` runs `Call()` as a task and gives what it returns, or throws what it
/// throws; std::bad_alloc when the task cannot be started.
///
/// A coroutine that is destroyed while it waits is not resumed. Its call is cancelled and comes to
/// its end without it: where that may happen, the call must hold what it uses by itself.
template <class Function>
class [[nodiscard]] Await {
 public:
  /// Nothing runs before the co_await; StackSize as in MessageLoop::StartTask.
  explicit Await(const Function& Call, std::size_t StackSize = Task::UsualStack)
      : Await(StackSize, Function(Call)) {}
  explicit Await(Function&& Call, std::size_t StackSize = Task::UsualStack)
      : Await(StackSize, std::move(Call)) {
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ < 13
    static_assert(std::is_trivially_destructible_v<Function>,
                  "GCC 12 destroys twice what a lambda within co_await captures by value: give the "
                  "lambda a name before, and await that, or std::ref of it");
#endif
  }
  ~Await() {
    job_->waiting = nullptr;
    task_.Cancel();
  }
  Await(const Await&) = delete;
  Await& operator=(const Await&) = delete;

  /// For co_await: starts the task, and gives or throws what the call has.
  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> coroutine) {
    job_->waiting = coroutine;
    const auto work = [job = job_] {
      if (!job->waiting) return;
      job->call.Run();
      AsyncPost([job] {
        if (job->waiting) job->waiting.resume();
      });
    };
    task_ = MessageLoop::ForThisThread().StartTask(work, stackSize_);
    if (task_.Error() != 0) throw std::bad_alloc();
  }
  decltype(auto) await_resume() {
    task_ = {};
    return job_->call.Take();
  }

 private:
  struct Job {
    AsyncCall<Function> call;
    std::coroutine_handle<> waiting;
  };

  Await(std::size_t stackSize, Function&& call)
      : job_(new Job{AsyncCall(std::move(call)), nullptr}), stackSize_(stackSize) {}

  const std::shared_ptr<Job> job_;
  const std::size_t stackSize_;
  Task task_;
};

}  // namespace netro
