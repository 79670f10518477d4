// How the platform calls of this program are defined. Each goes straight to the C library unless a Calls object records
// in the thread. Each is declared under a C++ name of its own that stands for the C symbol, so that the attributes,
// inline versions and exception promises of the system's headers do not meet these definitions.
#ifndef QX_TESTS_SUPPORT_INTERPOSE_CALLS_H
#define QX_TESTS_SUPPORT_INTERPOSE_CALLS_H

#include <dlfcn.h>

#include <string>

#include "support/interpose.h"
#include "support/interpose_engine.h"

using platform::armed_calls;
using platform::Engine;
using platform::Recording;

#define PLATFORM_CALL(type, name, parameters)                                                   \
  extern "C" __attribute__((visibility("default"))) type call_##name parameters __asm__(#name); \
  type call_##name parameters

// Makes `real` the routine behind ours, in a function defined with PLATFORM_CALL.
#define NEXT(name)                           \
  static decltype(call_##name) *slot_##name; \
  auto *const real = platform::next_routine(slot_##name, #name)

namespace platform {

// The C library's (or the sanitizer's) routine behind ours. No lock and no guard: two threads that look at the same
// time store the same value.
template <class Function>
Function *next_routine(Function *&slot, const char *name) {
  Function *found = __atomic_load_n(&slot, __ATOMIC_RELAXED);
  if (found == nullptr) {
    found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    __atomic_store_n(&slot, found, __ATOMIC_RELAXED);
  }
  return found;
}

}  // namespace platform

#endif
