// The text of a System Log record, and its use as a format.
#ifndef LIB_VK_LOG_ERROR_RECORD_TEXT_H
#define LIB_VK_LOG_ERROR_RECORD_TEXT_H

#include <cstddef>

namespace vk {

// Everything of a record stops here; one byte more for the zero byte.
inline constexpr std::size_t kLogRecord = 992;
// Every character may be a '%' that has to be doubled.
inline constexpr std::size_t kLogFormat = 2 * kLogRecord + 1;

// The format that prints `record`: "%%" and "%m" keep what they mean to syslog, any other '%' is doubled. A record
// without '%' is returned as it is, else the format lies in `buffer`.
const char *as_format(const char *record, char (&buffer)[kLogFormat]) noexcept;

}  // namespace vk

#endif
