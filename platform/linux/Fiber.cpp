// Fibers on Linux: ucontext stacks, mapped lazily, each with a guard below.
//
// A fiber's stack is entered once and stays inside Enter's loop: work for work is handed over by
// Begin, so a stack that is used again costs no makecontext. Its destructor sends it out of the
// loop, since AddressSanitizer wants to know of the last switch.
//
// The C++ run time keeps the exceptions that are being handled in one chain per thread. A function
// that stops inside a catch block would find another one's exceptions there when it goes on; so
// Resume changes the chain with the stack.
#include "platform/Fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

#include "platform/linux/FiberChecks.h"

namespace netro {
namespace {

// So large that a frame with a large buffer cannot step over it. It takes no memory.
constexpr std::size_t kGuard = std::size_t{256} << 10;
// What a stack may keep of its memory between two uses.
constexpr std::size_t kKept = std::size_t{16} << 10;

std::size_t PageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

// The layout is part of the C++ ABI.
struct HandledExceptions {
  void* caught = nullptr;
  unsigned int uncaught = 0;
};

HandledExceptions& OfThread() {
  return *reinterpret_cast<HandledExceptions*>(abi::__cxa_get_globals());
}

class Stack {
 public:
  explicit Stack(std::size_t size) {
    const std::size_t page = PageSize();
    const std::size_t wanted = std::max(size, Fiber::kSmallestStack);
    if (wanted > SIZE_MAX / 2) return;
    size_ = (wanted + page - 1) / page * page;
    void* map = mmap(nullptr, kGuard + size_, PROT_NONE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (map == MAP_FAILED) return;
    map_ = static_cast<std::uint8_t*>(map);
    if (mprotect(Bottom(), size_, PROT_READ | PROT_WRITE) != 0) Unmap();
  }
  ~Stack() { Unmap(); }
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  bool IsMapped() const { return map_ != nullptr; }
  std::uint8_t* Bottom() const { return map_ + kGuard; }
  std::size_t Size() const { return size_; }

  void Trim() {
    if (!WasDeep()) return;
    FiberChecks::Forget(Bottom(), size_ - kKept);
    madvise(Bottom(), size_ - kKept, MADV_DONTNEED);
  }

 private:
  // The page below what may be kept is all zero as long as nobody has come that far. Asking the
  // system would cost more than a short task does, and so would going word by word.
#if defined(__GNUC__)
  __attribute__((no_sanitize("address", "thread")))
#endif
  bool
  WasDeep() const {
    const auto* const end = reinterpret_cast<const std::uint64_t*>(Bottom() + size_ - kKept);
    for (const auto* at = end - PageSize() / sizeof *end; at < end; at += 8) {
      const auto low = at[0] | at[1] | at[2] | at[3];
      if ((low | at[4] | at[5] | at[6] | at[7]) != 0) return true;
    }
    return false;
  }

  void Unmap() {
    if (map_ == nullptr) return;
    FiberChecks::Forget(Bottom(), size_);
    munmap(map_, kGuard + size_);
    map_ = nullptr;
  }

  std::uint8_t* map_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace

struct Fiber::State {
  explicit State(std::size_t stackSize) : stack(stackSize) {}

  Stack stack;
  ucontext_t own{};
  ucontext_t resumer{};
  HandledExceptions handled;
  FiberChecks checks;
  std::function<void()> work;
  bool over = true;
  bool leaving = false;

  // makecontext passes nothing but ints.
  static void Enter(unsigned high, unsigned low) noexcept {
    const std::uint64_t bits = std::uint64_t{high} << 32 | low;
    State& s = *reinterpret_cast<State*>(static_cast<std::uintptr_t>(bits));
    s.checks.AfterEntering();
    while (!s.leaving) {
      s.work();
      s.work = nullptr;
      s.over = true;
      s.Leave(false);
    }
    s.Leave(true);
  }

  void Prepare() {
    getcontext(&own);
    own.uc_stack.ss_sp = stack.Bottom();
    own.uc_stack.ss_size = stack.Size();
    own.uc_link = nullptr;
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(this));
    makecontext(&own, reinterpret_cast<void (*)()>(&Enter), 2, static_cast<unsigned>(bits >> 32),
                static_cast<unsigned>(bits));
  }

  void Resume() {
    std::swap(OfThread(), handled);
    checks.BeforeEntering(stack.Bottom(), stack.Size());
    swapcontext(&resumer, &own);
    checks.AfterReturning();
    std::swap(OfThread(), handled);
  }

  void Leave(bool forGood) {
    checks.BeforeLeaving(forGood);
    swapcontext(&own, &resumer);
    checks.AfterEntering();
  }
};

std::unique_ptr<Fiber> Fiber::Make(std::size_t stackSize) try {
  auto state = std::make_unique<State>(stackSize);
  if (!state->stack.IsMapped()) return nullptr;
  state->Prepare();
  return std::unique_ptr<Fiber>(new Fiber(std::move(state)));
} catch (const std::bad_alloc&) {
  return nullptr;
}

Fiber::Fiber(std::unique_ptr<State> state) : state_(std::move(state)) {}

Fiber::~Fiber() {
  if (!state_->over) return;
  state_->leaving = true;
  Resume();
}

void Fiber::Begin(std::function<void()> work) {
  state_->work = std::move(work);
  state_->over = false;
}

void Fiber::Resume() { state_->Resume(); }

void Fiber::Suspend() { state_->Leave(false); }

bool Fiber::IsOver() const { return state_->over; }

void Fiber::Trim() { state_->stack.Trim(); }

}  // namespace netro
