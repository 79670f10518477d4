// The values of a VOSK Environment.
#ifndef LIB_VK_INIT_STACK_ENV_VALUES_H
#define LIB_VK_INIT_STACK_ENV_VALUES_H

namespace vk {

// Which variables are meant, in the order in which they are set.
inline constexpr unsigned int kSetStack = 0x01, kSetOrig = 0x02, kSetPid = 0x04, kSetAddr = 0x08, kSetPname = 0x10;
inline constexpr unsigned int kNewEnvironment = 31, kInheritedEnvironment = 20, kSystemLogOnly = 24;

inline constexpr int kDisplayOnly = 1;  // the mode that prints the values; any other sets them

// Results that have a number only.
inline constexpr int kStackDirectoryFailed = 19, kStackFileExists = 21;

// Computes the values of the variables in `mask` and exports them, or prints them in display mode. Returns 0, 16, 18,
// 19, 21 or 99; variables exported before a failure stay.
int vk_set_env_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name, int pid,
                      int mode) noexcept;

// Whether the variables in `mask` read back as meant: 0, or 16 at the first that does not. Only writes traces.
int vk_verify_env_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name,
                         const char *addr_text, char addr_type, int pid) noexcept;

}  // namespace vk

#endif
