// Blocks that the code under test leaves behind on purpose, or to the environment.
#ifndef QX_TESTS_SUPPORT_LEAKS_H
#define QX_TESTS_SUPPORT_LEAKS_H

// Of the leak checker, where the program has one.
extern "C" {
__attribute__((weak)) void __lsan_disable();
__attribute__((weak)) void __lsan_enable();
}

namespace leaks {

// What this thread obtains during its lifetime is no leak.
class OnPurpose {
 public:
  OnPurpose() {
    if (__lsan_disable != nullptr) __lsan_disable();
  }
  ~OnPurpose() {
    if (__lsan_enable != nullptr) __lsan_enable();
  }
  OnPurpose(const OnPurpose &) = delete;
  OnPurpose &operator=(const OnPurpose &) = delete;
};

}  // namespace leaks

#endif
