// Most of the time went into the stack traces of allocations, of which a report needs a few frames,
// and into memory kept from being used again, of which a small input needs little.
extern "C" const char* __asan_default_options();

extern "C" const char* __asan_default_options() {
  return "malloc_context_size=3:quarantine_size_mb=1:thread_local_quarantine_size_kb=64:"
         "detect_stack_use_after_return=0";
}
