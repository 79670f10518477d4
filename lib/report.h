// Reporting through libqx_cu: what an entry point returns. Reports are cold, so that their code lies out of a
// recording's way.
#ifndef LIB_REPORT_H
#define LIB_REPORT_H

#include "qx_cu.h"
#include "qx_vosk.h"

namespace vk {

inline constexpr char kCatalogue[] = "vosk.cat";
inline constexpr int kMessageSet = 1;

// Reports `code` with a message of the table and its inserts, and returns it.
template <typename... Inserts>
[[gnu::cold]] int report(int code, int message, Inserts... inserts) noexcept {
  return cu_set_error_1(code, 0, kCatalogue, kMessageSet, message, vk_mesgtbl_vk_lib[message], inserts...);
}

// Reports `code` with a text that is formatted already.
[[gnu::cold]] inline int report_text(int code, int message, const char *text) noexcept {
  return cu_set_error_1(code, 0, kCatalogue, kMessageSet, message, text);
}

}  // namespace vk

#endif
