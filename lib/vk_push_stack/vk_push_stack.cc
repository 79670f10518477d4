// Recording an incident into the VOSK Error Stack: the entry points.
#include <unistd.h>

#include <cstdint>

#include "lib/vk_push_stack/push.h"

// Both take the same arguments and differ in the process that they record for.
#define VK_PUSH(pid)                                                                                \
  const vk::incident in = {                                                                         \
      fid,         assoc_fid,   resource_name,  product_name, source_file,    source_version, line, \
      detail_data, detail_file, catalogue_name, message_set,  message_number, default_message};     \
  va_list args;                                                                                     \
  va_start(args, default_message);                                                                  \
  const int result = vk::push(pid, in, args);                                                       \
  va_end(args);                                                                                     \
  return result

int vk_push_stack_1(vk_eid_t *fid, const char *assoc_fid, const char *resource_name, const char *product_name,
                    const char *source_file, const char *source_version, int line, std::uint64_t /*reserved*/,
                    const char *detail_data, const char *detail_file, const char *catalogue_name, int message_set,
                    int message_number, const char *default_message, ...) {
  VK_PUSH(getpid());
}

int vk_push_stack_cmd_1(vk_eid_t *fid, const char *assoc_fid, const char *resource_name, const char *product_name,
                        const char *source_file, const char *source_version, int line, std::uint64_t /*reserved*/,
                        const char *detail_data, const char *detail_file, const char *catalogue_name, int message_set,
                        int message_number, const char *default_message, ...) {
  VK_PUSH(getppid());
}
