#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qx_vosk.h"
#include "utils/text.h"

int vk_truncate_description(char *description, int columns_used) {
  constexpr int kUsualWidth = 80;
  if (description == nullptr) return 0;
  const char *columns = getenv("COLUMNS");
  int width = columns != nullptr ? vk::decimal(columns) : kUsualWidth;
  if (width < 1) width = kUsualWidth;
  const std::int64_t limit = std::int64_t{width} - columns_used;
  const std::size_t length = std::strlen(description);
  // A line that is overfull already cuts nothing.
  if (limit >= 0 && length > static_cast<std::uint64_t>(limit)) description[limit] = '\0';
  return static_cast<int>(length);
}
