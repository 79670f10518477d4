// The environment test behind its entry points.
#ifndef LIB_VK_TEST_STACK_TEST_ENVIRONMENT_H
#define LIB_VK_TEST_STACK_TEST_ENVIRONMENT_H

namespace vk {

// What vk_test_stack_main_1 does once it is decided whether it traces.
int test_environment(int trace_on, const char *trace_path, int pid) noexcept;

}  // namespace vk

#endif
