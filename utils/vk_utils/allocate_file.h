// Creating a file with its space reserved.
#ifndef UTILS_VK_UTILS_ALLOCATE_FILE_H
#define UTILS_VK_UTILS_ALLOCATE_FILE_H

#include <cstdint>

namespace vk {

// vk_allocate_file for callers that hold a file_size_guard already.
int allocate_file(int trace_on, const char *trace_path, const char *path, std::int64_t wanted_size,
                  std::int64_t min_size, std::int64_t *reserved_size) noexcept;

}  // namespace vk

#endif
