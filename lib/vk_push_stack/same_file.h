// Whether two paths lead to one file.
#ifndef LIB_VK_PUSH_STACK_SAME_FILE_H
#define LIB_VK_PUSH_STACK_SAME_FILE_H

namespace vk {

// Both exist and are the same file now.
bool same_file(const char *path, const char *other) noexcept;

// `path` does not exist yet; creating it, or `other`, could make them the same file.
bool could_become_same_file(const char *path, const char *other) noexcept;

}  // namespace vk

#endif
