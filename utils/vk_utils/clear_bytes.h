// Writing zeros.
#ifndef UTILS_VK_UTILS_CLEAR_BYTES_H
#define UTILS_VK_UTILS_CLEAR_BYTES_H

#include <cstdint>

namespace vk {

// fclear for callers that hold a file_size_guard already.
int clear_bytes(int fd, std::int64_t length) noexcept;

}  // namespace vk

#endif
