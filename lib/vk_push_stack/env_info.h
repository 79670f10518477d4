// Where the environment says the stack is.
#ifndef LIB_VK_PUSH_STACK_ENV_INFO_H
#define LIB_VK_PUSH_STACK_ENV_INFO_H

#include <cstddef>

namespace vk {

inline constexpr std::size_t kStackPathSize = 4097;

// Reads path, owner and originator of the stack from the environment. `stack_filename` holds kStackPathSize bytes,
// zeroed. Returns what vk_test_for_file says of the file, 0 or -24 among it, with the path copied for those, -23 and
// -25; or -4, -5, -6 for a null pointer, -31 for a missing variable.
int vk_get_env_info(int trace_on, const char *trace_path, char *stack_filename, int *env_owner, int *env_orig) noexcept;

}  // namespace vk

#endif
