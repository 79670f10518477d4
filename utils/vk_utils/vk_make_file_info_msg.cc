#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

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
  char number[vk::kDecimalSize];
  const char *const number_end = vk::put_decimal(number, missing(VK_FLAG_BAD_LINE) ? 0 : line);
  const std::string_view pieces[] = {
      missing(VK_FLAG_NO_PRODUCT) ? "qrn_product" : vk::printable(product),
      ",",
      missing(VK_FLAG_NO_FILE_NAME) ? "unknown_file" : vk::base_name(buffer, vk::printable(source_file)),
      ",",
      missing(VK_FLAG_NO_VERSION) ? "no_version_num" : vk::printable(version),
      ",",
      {number, static_cast<std::size_t>(number_end - number)}};
  vk::text_builder<kFileInfo> text;
  std::size_t full = 0;
  for (const std::string_view &piece : pieces) {
    text.append(piece);
    full += piece.size();
  }
  std::memset(field, ' ', kFileInfo);
  std::memcpy(field, text.c_str(), std::min(full, kFileInfo - 1));
  if (full < kFileInfo) return kFileInfo;
  const vk::tracer trace(trace_on, trace_path, "vk_make_file_info_msg");
  VK_TRACE(trace,
           "File Identification information \"%s\" is %d chars long, being truncated\nSome information will be lost\n",
           text.c_str(), vk::low32(full));
  field[kFileInfo - 1] = '>';
  return kFileInfo;
}
