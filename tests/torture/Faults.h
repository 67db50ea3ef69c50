// What goes wrong on the thread that asked for it: the n-th allocation, the n-th call of a function
// of the system, each once or from then on, reads and writes of one byte. Replaces operator new and
// the functions of the C library that the library under test calls (FaultyCalls.cpp), for the whole
// program; other threads notice nothing.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace netro::torture {

/// A function of the system and the errors that its manual page names and a peer, a full disk or
/// other programs can bring about.
struct FaultyCall {
  const char* name;
  std::span<const int> errors;
};
std::span<const FaultyCall> FaultyCalls();
constexpr std::size_t kMostCalls = 48;

struct Fault {
  enum Kind { None, Allocation, SystemCall, SingleBytes } kind = None;
  std::size_t call = 0;      // of FaultyCalls
  int error = 0;             // errno
  std::size_t position = 0;  // from 0
  bool lasting = false;      // from there on
};

struct Counts {
  std::size_t allocations = 0;
  std::array<std::size_t, kMostCalls> calls{};
  std::size_t waits = 0;
  bool struck = false;  // the fault was met
};

/// From now on, inside Hurt, this thread's allocations, calls and waits are counted, and the fault
/// strikes.
void Arm(const Fault& fault);
Counts Disarm();

/// From now on it is told where a fault strikes (addresses, for addr2line).
void TraceStrikes();

/// Whether the present fault goes on: events may not come then.
bool IsLasting();

/// Where the fault may strike: around the calls of the library, and not around what checks them.
class Hurting {
 public:
  Hurting();
  ~Hurting();
};
template <class Call>
auto Hurt(Call call) {
  const Hurting hurting;
  return call();
}

/// Called before this thread sleeps, with the number of sleeps since Arm; null: nothing. While it
/// is armed with a fault, a sleep that no peer ends within a moment passes on an advanced clock.
void OnWait(std::function<void(std::size_t)> hook);

/// Blocks that armed or watched threads hold now; Watch makes the caller one.
void Watch();
std::ptrdiff_t LiveBlocks();

// For FaultyCalls.cpp.
/// The error that this call shall end with; 0: none.
int Strike(std::size_t call);
/// How many bytes this call may move.
std::size_t Allowed(std::size_t wanted);
/// What the thread does before it sleeps for so long (below 0: for ever), and for how long it may.
int BeforeWait(int milliseconds);
/// It has slept so long and nothing came.
void PassTime(int milliseconds);

}  // namespace netro::torture
