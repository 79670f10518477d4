#include <cstdint>
#include <cstdio>
#include <cstring>

#include "qx_vosk.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {

// The field's width; it has no zero byte.
static constexpr std::size_t kFileInfo = 46;

}  // namespace vk

int vk_make_file_info_msg(int trace_on, const char *trace_path, char *field, const char *product,
                          const char *source_file, const char *version, int line, const std::uint32_t *flags) {
  using vk::kFileInfo;
  const auto missing = [flags](int flag) { return flags != nullptr && flags[flag] != 0; };
  char buffer[vk::kPathSize];
  const char *file = missing(VK_FLAG_NO_FILE_NAME) ? "unknown_file" : vk::base_name(buffer, vk::printable(source_file));
  const int full = std::snprintf(
      field, kFileInfo, "%-s,%-s,%-s,%-d", missing(VK_FLAG_NO_PRODUCT) ? "qrn_product" : vk::printable(product), file,
      missing(VK_FLAG_NO_VERSION) ? "no_version_num" : vk::printable(version), missing(VK_FLAG_BAD_LINE) ? 0 : line);
  if (full >= 0 && static_cast<std::size_t>(full) < kFileInfo) {
    std::memset(field + full, ' ', kFileInfo - static_cast<std::size_t>(full));
    return kFileInfo;
  }
  const vk::tracer trace(trace_on, trace_path, "vk_make_file_info_msg");
  VK_TRACE(trace,
           "File Identification information \"%s\" is %d chars long, being truncated\nSome information will be lost\n",
           field, full);
  field[kFileInfo - 1] = '>';
  return kFileInfo;
}
