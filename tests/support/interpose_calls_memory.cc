// The allocator, which a test can make fail. It is reached under its second names, never through dlsym, which may
// allocate itself.

#include <cerrno>

#include "support/interpose_calls.h"

#ifdef QX_SANITIZER_ALLOCATOR
#define QX_ALLOCATOR(name) __interceptor_##name
#else
#define QX_ALLOCATOR(name) __libc_##name
#endif

extern "C" {
void *QX_ALLOCATOR(malloc)(size_t);
void *QX_ALLOCATOR(calloc)(size_t, size_t);
void *QX_ALLOCATOR(realloc)(void *, size_t);
}

namespace {

// Whether this allocation is to fail; errno is set then.
bool allocation_fails(const char *name) {
  if (armed_calls == nullptr) return false;
  int before = errno;
  platform::Calls *calls = armed_calls;
  armed_calls = nullptr;
  Engine::Decision decision = Engine::allocation(*calls, name);
  armed_calls = calls;
  errno = decision.action == Engine::Action::kFail ? static_cast<int>(decision.value) : before;
  return decision.action == Engine::Action::kFail;
}

}  // namespace

PLATFORM_CALL(void *, malloc, (size_t size)) {
  return allocation_fails("malloc") ? nullptr : QX_ALLOCATOR(malloc)(size);
}
PLATFORM_CALL(void *, calloc, (size_t count, size_t size)) {
  return allocation_fails("calloc") ? nullptr : QX_ALLOCATOR(calloc)(count, size);
}
PLATFORM_CALL(void *, realloc, (void *block, size_t size)) {
  return allocation_fails("realloc") ? nullptr : QX_ALLOCATOR(realloc)(block, size);
}
