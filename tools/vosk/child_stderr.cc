#include "child_stderr.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

namespace vosk {

// The byte number n of the stream lies at n modulo the size.
struct stderr_tail::ring {
  std::atomic<std::uint64_t> total;
  char bytes[];  // NOLINT(modernize-avoid-c-arrays): as many as the mapping has room for

  void add(const char *text, std::size_t length, std::size_t size) {
    std::uint64_t at = total.load(std::memory_order_relaxed);
    for (std::size_t done = 0; done < length;) {
      const std::size_t place = at % size, n = std::min(length - done, size - place);
      std::memcpy(bytes + place, text + done, n);
      done += n;
      at += n;
    }
    total.store(at, std::memory_order_release);
  }
};

namespace {

// The descriptors of the process that reads the pipe.
enum : int { kPipe = 0, kControl = 1, kTarget = 2 };

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Where nobody reads any more, the text is dropped: the command is not to die of what it would not have noticed later.
void pass_on(const char *text, std::size_t length) {
  while (length > 0) {
    const ssize_t n = write(kTarget, text, length);
    if (n < 0 && errno == EAGAIN) {
      pollfd room{kTarget, POLLOUT, 0};
      (void)poll(&room, 1, -1);
    } else if (n < 0 && errno != EINTR) {
      return;
    } else if (n > 0) {
      text += n;
      length -= static_cast<std::size_t>(n);
    }
  }
}

// Frees everything that a late reader would keep in use: descriptors, the directory, the terminal's signals.
void become_reader(int pipe, int control) {
  sigset_t all;
  (void)sigfillset(&all);
  (void)sigprocmask(SIG_SETMASK, &all, nullptr);
  (void)setpgid(0, 0);
  (void)prctl(PR_SET_NAME, "vosk-stderr");
  // Both are above the standard descriptors, which have been taken since the program started.
  if (dup2(pipe, kPipe) < 0 || dup2(control, kControl) < 0) _exit(1);
  closefrom(3);
  (void)!chdir("/");
}

class reader {
 public:
  template <class Keep>
  void run(Keep keep) {
    for (;;) {
      pollfd fds[] = {{kPipe, POLLIN, 0}, {asked_ ? -1 : static_cast<int>(kControl), POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;
      if (fds[1].revents != 0) {
        answer(keep);
        asked_ = true;
      } else if (!move(sizeof buffer_, keep)) {
        return;
      }
    }
  }

 private:
  // Moves at most `most` bytes. False at the end of the stream.
  template <class Keep>
  bool move(std::size_t most, Keep keep) {
    moved_ = 0;
    const ssize_t n = read(kPipe, buffer_, std::min(most, sizeof buffer_));
    if (n <= 0) return n < 0 && errno == EINTR;
    if (!asked_) keep(buffer_, static_cast<std::size_t>(n));
    pass_on(buffer_, static_cast<std::size_t>(n));
    moved_ = static_cast<std::size_t>(n);
    return true;
  }

  // What is in the pipe now belongs to the tail; what others write from now on does not.
  template <class Keep>
  void answer(Keep keep) {
    int waiting = 0;
    if (ioctl(kPipe, FIONREAD, &waiting) != 0) waiting = 0;
    for (std::size_t left = static_cast<std::size_t>(waiting); left > 0 && move(left, keep);) left -= moved_;
    const char done = 0;
    (void)send(kControl, &done, 1, MSG_NOSIGNAL);
  }

  char buffer_[65536];
  std::size_t moved_ = 0;
  bool asked_ = false;
};

}  // namespace

stderr_tail::stderr_tail(std::size_t size) : ring_(nullptr), size_(size) {
  int pipe[2], control[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) fail("pipe");
  const unique_fd read_end(pipe[0]);
  write_end_ = unique_fd(pipe[1]);
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, control) != 0) fail("socketpair");
  control_ = unique_fd(control[0]);
  const unique_fd other_control(control[1]);
  void *const shared = mmap(nullptr, sizeof(ring) + size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) fail("mmap");
  ring_ = static_cast<ring *>(shared);
  const pid_t pid = fork();
  if (pid < 0) {
    const int error = errno;
    (void)munmap(shared, sizeof(ring) + size);
    errno = error;
    fail("fork");
  }
  if (pid > 0) return;
  become_reader(read_end.get(), other_control.get());
  reader moving;
  moving.run([&](const char *text, std::size_t length) { ring_->add(text, length, size_); });
  _exit(0);
}

stderr_tail::~stderr_tail() {
  (void)munmap(ring_, sizeof(ring) + size_);
}

stderr_tail::excerpt stderr_tail::take() {
  char byte = 0;
  if (send(control_.get(), &byte, 1, MSG_NOSIGNAL) == 1) (void)!read(control_.get(), &byte, 1);
  excerpt tail;
  tail.total = ring_->total.load(std::memory_order_acquire);
  const std::size_t length = static_cast<std::size_t>(std::min<std::uint64_t>(tail.total, size_));
  tail.bytes.reserve(length);
  for (std::uint64_t at = tail.total - length; at < tail.total; ++at) tail.bytes += ring_->bytes[at % size_];
  return tail;
}

}  // namespace vosk
