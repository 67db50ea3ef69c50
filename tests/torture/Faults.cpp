#include "Faults.h"

#include <execinfo.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>

#include "platform/Clock.h"

namespace netro::torture {
namespace {

constexpr int kMoment = 40;  // milliseconds; a peer of the same machine answers sooner

struct State {
  bool watched = false;
  bool armed = false;
  bool hurting = false;
  Fault fault;
  Counts counts;
};

thread_local State t_state;
thread_local std::function<void(std::size_t)>* t_onWait = nullptr;
std::atomic<std::ptrdiff_t> live{0};
bool trace = false;

void Trace() {
  t_state.hurting = false;
  void* frames[40];
  backtrace_symbols_fd(frames, backtrace(frames, 40), 1);
  t_state.hurting = true;
}

// In front of each block: whether it counts.
constexpr std::size_t kFront = 16;

bool Reached(std::size_t number) {
  State& state = t_state;
  const Fault& fault = state.fault;
  const bool now = fault.lasting ? number >= fault.position : number == fault.position;
  state.counts.struck = state.counts.struck || now;
  if (now && trace) Trace();
  return now;
}

bool AllocationFails() {
  State& state = t_state;
  if (!state.armed || !state.hurting) return false;
  const std::size_t number = state.counts.allocations++;
  return state.fault.kind == Fault::Allocation && Reached(number);
}

}  // namespace

void Arm(const Fault& fault) {
  t_state.fault = fault;
  t_state.counts = {};
  t_state.armed = t_state.watched = true;
}

Counts Disarm() {
  t_state.armed = false;
  return t_state.counts;
}

bool IsLasting() { return t_state.armed && t_state.fault.lasting; }

void TraceStrikes() { trace = true; }

Hurting::Hurting() { t_state.hurting = true; }
Hurting::~Hurting() { t_state.hurting = false; }

void OnWait(std::function<void(std::size_t)> hook) {
  static thread_local std::function<void(std::size_t)> kept;
  kept = std::move(hook);
  t_onWait = kept ? &kept : nullptr;
}

void Watch() { t_state.watched = true; }

std::ptrdiff_t LiveBlocks() { return live; }

int Strike(std::size_t call) {
  State& state = t_state;
  if (!state.armed || !state.hurting) return 0;
  const std::size_t number = state.counts.calls[call]++;
  const bool concerned = state.fault.kind == Fault::SystemCall && state.fault.call == call;
  return concerned && Reached(number) ? state.fault.error : 0;
}

std::size_t Allowed(std::size_t wanted) {
  State& state = t_state;
  const bool single = state.armed && state.hurting && state.fault.kind == Fault::SingleBytes;
  if (single) state.counts.struck = true;
  return single ? std::min<std::size_t>(wanted, 1) : wanted;
}

int BeforeWait(int milliseconds) {
  State& state = t_state;
  if (!state.armed || !state.hurting || milliseconds == 0) return milliseconds;
  const std::size_t number = state.counts.waits++;
  if (t_onWait != nullptr) {
    state.hurting = false;
    (*t_onWait)(number);
    state.hurting = true;
  }
  if (state.fault.kind == Fault::None || milliseconds < 0) return milliseconds;
  return std::min(milliseconds, kMoment);
}

void PassTime(int milliseconds) {
  AdvanceClockForTests(std::chrono::milliseconds(milliseconds));
}

namespace {

void* Allocate(std::size_t size) {
  if (AllocationFails()) return nullptr;
  void* const whole = std::malloc(size + kFront);
  if (whole == nullptr) return nullptr;
  const bool counts = t_state.watched;
  *static_cast<bool*>(whole) = counts;
  if (counts) ++live;
  return static_cast<char*>(whole) + kFront;
}

void Free(void* block) {
  if (block == nullptr) return;
  void* const whole = static_cast<char*>(block) - kFront;
  if (*static_cast<bool*>(whole)) --live;
  std::free(whole);
}

}  // namespace
}  // namespace netro::torture

void* operator new(std::size_t size) {
  void* const block = netro::torture::Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return netro::torture::Allocate(size);
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return netro::torture::Allocate(size);
}
void operator delete(void* block) noexcept { netro::torture::Free(block); }
void operator delete[](void* block) noexcept { netro::torture::Free(block); }
void operator delete(void* block, std::size_t) noexcept { netro::torture::Free(block); }
void operator delete[](void* block, std::size_t) noexcept { netro::torture::Free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { netro::torture::Free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  netro::torture::Free(block);
}
