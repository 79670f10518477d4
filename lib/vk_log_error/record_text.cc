#include "lib/vk_log_error/record_text.h"

#include <cstring>

namespace vk {

const char *as_format(const char *record, char (&buffer)[kLogFormat]) noexcept {
  if (std::strchr(record, '%') == nullptr) return record;
  char *out = buffer;
  for (const char *in = record; *in != '\0'; ++in) {
    *out++ = *in;
    if (*in != '%') continue;
    if (in[1] == '%' || in[1] == 'm')
      *out++ = *++in;
    else
      *out++ = '%';
  }
  *out = '\0';
  return buffer;
}

}  // namespace vk
