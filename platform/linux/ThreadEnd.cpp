// As the compiler does for thread_local objects.
#include "platform/ThreadEnd.h"

#include <cxxabi.h>

extern "C" {
extern void* __dso_handle;  // NOLINT: the system's name
int __cxa_thread_atexit(void (*end)(void*), void* object, void* module) noexcept;  // NOLINT
}

namespace netro {

void AtThreadEnd(void (*end)(void* object), void* object) {
  __cxa_thread_atexit(end, object, &__dso_handle);
}

}  // namespace netro
