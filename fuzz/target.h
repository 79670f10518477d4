// What the fuzz targets share: cutting the input into values, buffers of the exact size, and the assertion.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#define FUZZ_EXPECT(condition)                                                            \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (false)

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace fuzz {

// Takes values off the front of an input; what is missing is zero or empty.
class input {
 public:
  input(const std::uint8_t *data, std::size_t size) : at_(reinterpret_cast<const char *>(data)), left_(size) {}

  template <class T>
  T number() {
    T value{};
    const std::size_t n = std::min(left_, sizeof value);
    if (n != 0) std::memcpy(&value, at_, n);
    skip(n);
    return value;
  }
  // A text up to a line feed or a zero byte, which goes too, or up to `most` characters.
  std::string text(std::size_t most) {
    std::size_t n = 0;
    while (n < left_ && n < most && at_[n] != '\n' && at_[n] != '\0') ++n;
    std::string out(at_, n);
    skip(n);
    if (left_ != 0 && (*at_ == '\n' || *at_ == '\0')) skip(1);
    return out;
  }
  // Everything that is left, zero bytes included.
  std::string rest() {
    std::string out(at_, left_);
    skip(left_);
    return out;
  }

 private:
  void skip(std::size_t n) {
    at_ += n;
    left_ -= n;
  }
  const char *at_;
  std::size_t left_;
};

// Memory of exactly this size, so that a sanitizer sees every byte too many.
class exact {
 public:
  explicit exact(std::size_t size) : memory_(new char[size]()), size_(size) {}
  // The text with its zero byte.
  explicit exact(const std::string &text) : exact(text.size() + 1) {
    std::memcpy(memory_.get(), text.c_str(), text.size() + 1);
  }
  char *get() { return memory_.get(); }
  std::string bytes() const { return {memory_.get(), size_}; }

 private:
  std::unique_ptr<char[]> memory_;
  std::size_t size_;
};

// A file without a place in any directory; its path works in this process.
class memory_file {
 public:
  explicit memory_file(const char *name) : fd_(memfd_create(name, 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {
    FUZZ_EXPECT(fd_ >= 0);
  }
  const char *path() const { return path_.c_str(); }
  void set(const std::string &bytes) {
    FUZZ_EXPECT(ftruncate(fd_, 0) == 0);
    FUZZ_EXPECT(pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  }
  std::string bytes() const {
    std::string out(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
    FUZZ_EXPECT(pread(fd_, out.data(), out.size(), 0) == static_cast<ssize_t>(out.size()));
    return out;
  }

 private:
  int fd_;
  std::string path_;
};

}  // namespace fuzz

#endif
