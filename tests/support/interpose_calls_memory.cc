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
void QX_ALLOCATOR(free)(void *);
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

// Notes that `released` is gone and that `block` is there; null is neither.
void *noted(void *released, void *block, size_t size) {
  if (armed_calls == nullptr) return block;
  int before = errno;
  platform::Calls *calls = armed_calls;
  armed_calls = nullptr;
  if (released != nullptr) Engine::released(*calls, released);
  if (block != nullptr) Engine::obtained(*calls, block, size);
  armed_calls = calls;
  errno = before;
  return block;
}

}  // namespace

PLATFORM_CALL(void *, malloc, (size_t size)) {
  return allocation_fails("malloc") ? nullptr : noted(nullptr, QX_ALLOCATOR(malloc)(size), size);
}
PLATFORM_CALL(void *, calloc, (size_t count, size_t size)) {
  return allocation_fails("calloc") ? nullptr : noted(nullptr, QX_ALLOCATOR(calloc)(count, size), count * size);
}
PLATFORM_CALL(void *, realloc, (void *block, size_t size)) {
  if (allocation_fails("realloc")) return nullptr;
  void *moved = QX_ALLOCATOR(realloc)(block, size);
  return noted(moved != nullptr ? block : nullptr, moved, size);
}
PLATFORM_CALL(void, free, (void *block)) {
  noted(block, nullptr, 0);
  QX_ALLOCATOR(free)(block);
}
