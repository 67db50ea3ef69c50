#include "platform/Waker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "platform/linux/Descriptor.h"

namespace netro {

Waker::~Waker() {
  if (handle_ >= 0) close(Descriptor(handle_));
}

std::intptr_t Waker::Open() {
  if (handle_ < 0) handle_ = AwayFromZero(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  // A wake-up from before there was a descriptor must not be lost.
  if (handle_ >= 0 && woken_.exchange(false)) Wake();
  return handle_;
}

void Waker::Wake() {
  if (woken_.exchange(true)) return;
  const int error = errno;  // a signal handler must leave it alone
  const std::uint64_t one = 1;
  (void)!write(Descriptor(handle_), &one, sizeof one);
  errno = error;
}

void Waker::Clear() {
  std::uint64_t count = 0;
  // In this order: a wake-up between the two is seen by whoever looks after the sleep.
  (void)!read(Descriptor(handle_), &count, sizeof count);
  woken_ = false;
}

}  // namespace netro
