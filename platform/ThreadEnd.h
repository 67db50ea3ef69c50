// What is to be done when a thread ends, while everything else that is the thread's own is there.
#pragma once

namespace netro {

/// Calls `end` with `object` when the calling thread ends; the last one asked for is the first.
void AtThreadEnd(void (*end)(void* object), void* object);

}  // namespace netro
