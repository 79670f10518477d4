// Many processes at once: memory that they share, and children that start together.
#ifndef QX_TESTS_PROOF_PROCESSES_H
#define QX_TESTS_PROOF_PROCESSES_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <vector>

namespace proof {

// One object that this process and its children see alike.
template <class T>
class Shared {
 public:
  Shared() {
    void *memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    object_ = new (memory) T();
  }
  ~Shared() { munmap(object_, sizeof(T)); }
  Shared(const Shared &) = delete;
  Shared &operator=(const Shared &) = delete;
  T *operator->() { return object_; }
  T &operator*() { return *object_; }

 private:
  T *object_;
};

// Runs `body(i)` in `count` children that all begin at the same time, and waits for them.
inline void together(int count, const std::function<void(int)> &body) {
  Shared<std::atomic<int>> ready;
  std::vector<pid_t> children;
  for (int i = 0; i < count; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ready->fetch_add(1);
      while (ready->load() < count) usleep(50);
      body(i);
      _exit(0);
    }
    children.push_back(child);
  }
  for (pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "child " << child;
  }
}

}  // namespace proof

#endif
