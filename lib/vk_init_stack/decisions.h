// Whether an environment can be created or inherited, by the variables that are there.
#ifndef LIB_VK_INIT_STACK_DECISIONS_H
#define LIB_VK_INIT_STACK_DECISIONS_H

namespace vk {

// Returns 0, 14 (there is one already), 17 (contradicting variables) or a result of vk_set_env_values.
int vk_create_env(int trace_on, const char *trace_path, const char *proc_name, int pid, int mode) noexcept;

// Returns 1, 14 (the process owns it already), 15 (none), 17 or a result of vk_set_env_values.
int vk_inherit_env(int trace_on, const char *trace_path, const char *proc_name, int pid, int mode) noexcept;

}  // namespace vk

#endif
