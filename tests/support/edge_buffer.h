// Memory whose end is the end of what may be touched: one byte read or written too many ends the program with a signal,
// in every build. Bytes changed in front of the memory fail the test.
//
//   EdgeBuffer out(7);
//   EXPECT_EQ(vk_l64a_r(value, out.chars(), 5), 0);
//   EXPECT_EQ(out.bytes(), std::string("zzzzzz\0", 7));
//   vk_decode_eid(..., EdgeBuffer(forty_three_bytes).chars(), ...);
#ifndef QX_TESTS_SUPPORT_EDGE_BUFFER_H
#define QX_TESTS_SUPPORT_EDGE_BUFFER_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

class EdgeBuffer {
 public:
  static constexpr char kUntouched = '\xA5';

  explicit EdgeBuffer(std::size_t size) : size_(size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    usable_ = (size + kFront + page - 1) / page * page;
    mapped_ = usable_ + page;
    void *memory = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    start_ = static_cast<char *>(memory);
    if (mprotect(start_ + usable_, page, PROT_NONE) != 0) std::abort();
    std::memset(start_, kUntouched, usable_);
  }
  // The bytes as they are, without a zero byte behind them.
  explicit EdgeBuffer(std::string_view bytes) : EdgeBuffer(bytes.size()) { set(bytes); }
  ~EdgeBuffer() {
    const std::string front(start_, usable_ - size_);
    EXPECT_EQ(front.find_first_not_of(kUntouched), std::string::npos) << "bytes in front of the buffer were changed";
    munmap(start_, mapped_);
  }
  EdgeBuffer(const EdgeBuffer &) = delete;
  EdgeBuffer &operator=(const EdgeBuffer &) = delete;

  char *chars() { return start_ + usable_ - size_; }
  std::size_t size() const { return size_; }
  std::string bytes() const { return std::string(start_ + usable_ - size_, size_); }
  bool untouched() const { return bytes() == std::string(size_, kUntouched); }
  void set(std::string_view bytes) { std::copy_n(bytes.data(), std::min(bytes.size(), size_), chars()); }
  void fill(char byte) { std::memset(chars(), byte, size_); }

 private:
  static constexpr std::size_t kFront = 64;
  std::size_t size_, usable_ = 0, mapped_ = 0;
  char *start_ = nullptr;
};

// A text with its zero byte.
class EdgeText : public EdgeBuffer {
 public:
  explicit EdgeText(std::string_view text) : EdgeBuffer(std::string(text) + '\0') {}
};

#endif
