// Fibers of the system, whose guard and lazy pages are its own. The thread becomes a fiber with its
// first Resume, and stays one.
//
// The C++ run time keeps the exceptions that are being handled in one chain per thread, which
// Resume changes with the stack.
#include "platform/Fiber.h"

#include <cxxabi.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/windows/System.h"

#pragma GCC diagnostic ignored \
    "-Warray-bounds"  // the system's headers read the thread's block at 0

namespace netro {
namespace {

// What a stack has of its memory in the beginning, and may keep between two uses.
constexpr std::size_t kKept = std::size_t{32} << 10;

// The layout is part of the C++ ABI.
struct HandledExceptions {
  void* caught = nullptr;
  unsigned int uncaught = 0;
};

HandledExceptions& OfThread() {
  return *reinterpret_cast<HandledExceptions*>(abi::__cxa_get_globals());
}

void* ThreadAsFiber() {
  return IsThreadAFiber() != 0 ? GetCurrentFiber() : ConvertThreadToFiber(nullptr);
}

}  // namespace

struct Fiber::State {
  explicit State(std::size_t size) : stackSize(std::max(size, Fiber::kSmallestStack)) {}
  ~State() {
    if (own != nullptr) DeleteFiber(own);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  static void WINAPI Enter(void* self) noexcept {
    State& s = *static_cast<State*>(self);
    while (true) {
      s.work();
      s.work = nullptr;
      s.over = true;
      s.deep = s.UsedStack() > kKept;
      SwitchToFiber(s.resumer);
    }
  }

  bool Prepare() {
    own = CreateFiberEx(kKept, stackSize, 0, &Enter, this);
    return own != nullptr;
  }

  void Resume() {
    resumer = ThreadAsFiber();
    std::swap(OfThread(), handled);
    SwitchToFiber(own);
    std::swap(OfThread(), handled);
  }

  // The system moves the limit down as pages are taken.
  static std::size_t UsedStack() {
    const auto* const block = reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
    return static_cast<std::size_t>(static_cast<const char*>(block->StackBase) -
                                    static_cast<const char*>(block->StackLimit));
  }

  const std::size_t stackSize;
  void* own = nullptr;
  void* resumer = nullptr;
  HandledExceptions handled;
  std::function<void()> work;
  bool over = true;
  bool deep = false;
};

std::unique_ptr<Fiber> Fiber::Make(std::size_t stackSize) try {
  auto state = std::make_unique<State>(stackSize);
  if (!state->Prepare()) return nullptr;
  return std::unique_ptr<Fiber>(new Fiber(std::move(state)));
} catch (const std::bad_alloc&) {
  return nullptr;
}

Fiber::Fiber(std::unique_ptr<State> state) : state_(std::move(state)) {}

Fiber::~Fiber() = default;

void Fiber::Begin(std::function<void()> work) {
  state_->work = std::move(work);
  state_->over = false;
}

void Fiber::Resume() { state_->Resume(); }

void Fiber::Suspend() { SwitchToFiber(state_->resumer); }

bool Fiber::IsOver() const { return state_->over; }

// A new stack for the old one: pages are not given back by themselves. Where there is none, the old
// one stays.
void Fiber::Trim() {
  if (!std::exchange(state_->deep, false)) return;
  void* const old = state_->own;
  if (state_->Prepare()) {
    DeleteFiber(old);
  } else {
    state_->own = old;
  }
}

}  // namespace netro
