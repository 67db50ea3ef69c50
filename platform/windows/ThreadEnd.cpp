// The run time frees the memory of thread_local objects before it calls their destructors, so those
// must have nothing to do. It goes by the order in which keys of threads were made: the key here is
// made before all others of the program.
#include "platform/ThreadEnd.h"

#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace netro {
namespace {

using Ends = std::vector<std::pair<void (*)(void*), void*>>;

pthread_key_t g_key;

void RunEnds(void* list) {
  const std::unique_ptr<Ends> ends(static_cast<Ends*>(list));
  while (!ends->empty()) {
    const auto [end, object] = ends->back();
    ends->pop_back();
    end(object);
  }
}

__attribute__((constructor(101))) void MakeKey() { pthread_key_create(&g_key, &RunEnds); }

// The thread that ends the program.
void AtExit() {
  if (void* const list = pthread_getspecific(g_key)) {
    pthread_setspecific(g_key, nullptr);
    RunEnds(list);
  }
}

}  // namespace

void AtThreadEnd(void (*end)(void* object), void* object) {
  static const int registered = std::atexit(&AtExit);
  static_cast<void>(registered);
  auto* ends = static_cast<Ends*>(pthread_getspecific(g_key));
  if (ends == nullptr) {
    ends = new Ends;
    pthread_setspecific(g_key, ends);
  }
  ends->emplace_back(end, object);
}

}  // namespace netro
