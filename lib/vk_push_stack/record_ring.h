// The records of a stack file, found in its bytes.
#ifndef LIB_VK_PUSH_STACK_RECORD_RING_H
#define LIB_VK_PUSH_STACK_RECORD_RING_H

#include <cstddef>

#include "lib/vk_push_stack/ctrl_info.h"
#include "lib/vk_push_stack/record_check.h"

namespace vk {

// A run of bytes of the file.
struct extent {
  std::size_t begin, end;
};

inline constexpr std::size_t kMostRecords = sizeof(stack_image::bytes) / (kBodyMin + stack_file::kPrefixSize);

// The whole records, oldest first: those from the end of the newest one on, then those in front of it.
class record_ring {
 public:
  // Of a header that was checked.
  record_ring(const stack_image &image, const stack_file::control &control) noexcept;

  // Every record leads to the next, from the earliest offset to the newest.
  bool linked() const noexcept { return linked_; }
  std::size_t count() const noexcept { return count_; }
  const extent &operator[](std::size_t i) const noexcept { return records_[i]; }
  const extent *begin() const noexcept { return records_; }
  const extent *end() const noexcept { return records_ + count_; }
  // The end of the newest record: the recording position, or up to 4 bytes behind the file size.
  std::size_t position() const noexcept { return position_; }
  // Where records end at the latest: 4 bytes behind the file size, or at the end of a file that was cut.
  std::size_t limit() const noexcept { return limit_; }

 private:
  checked_record check(std::size_t at, std::size_t end) const noexcept { return check_record({bytes_ + at, end - at}); }
  std::size_t take_run(std::size_t at, std::size_t end, bool only_intact = false) noexcept;
  bool follow_links() noexcept;
  bool may_hide_older_records() const noexcept;
  bool covers_another(std::size_t at, std::size_t size) const noexcept;
  void search() noexcept;

  const unsigned char *const bytes_;
  const std::size_t size_, limit_, first_, earliest_;
  const bool wrapped_;
  std::size_t position_;
  bool linked_;
  std::size_t count_ = 0;
  extent records_[kMostRecords];
};

}  // namespace vk

#endif
