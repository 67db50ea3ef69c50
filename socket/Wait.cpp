#include "socket/Wait.h"

#include "platform/ErrorNumbers.h"
#include "platform/Loop.h"

namespace netro {
WaitEnd WaitUntil(const CancelMark& mark, TimePoint deadline, const std::function<bool()>& done) {
  Loop& loop = mark.Module().MessageLoop();
  const Loop::WaitScope waiting(loop);
  for (;;) {
    loop.RunHostPump();
    loop.PumpMessages();
    if (done()) return WaitEnd::Done;
    if (Now() >= deadline) return WaitEnd::TimedOut;
    if (mark.Cancelled()) return WaitEnd::Cancelled;
    loop.Block(deadline);
  }
}

std::int32_t WaitError(WaitEnd end) {
  switch (end) {
    case WaitEnd::Done:
      return kErrNone;
    case WaitEnd::TimedOut:
      return kErrTimedOut;
    case WaitEnd::Cancelled:
      break;
  }
  return kErrCancelled;
}

}  // namespace netro
