// The time of day: seconds and microseconds.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"
#include "utils/vk_utils/base64.h"

namespace vk {

static constexpr int kLastMicrosecond = 999999;

int vk_get_base_64_time(int trace_on, const char *trace_path, char *tod64rep, std::int64_t *seconds) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_base_64_time");
  if (tod64rep == nullptr) {
    VK_TRACE(trace, "Called with a NULL parameter for tod64rep\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (seconds == nullptr) {
    VK_TRACE(trace, "Called with a NULL parameter for seconds\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    VK_TRACE(trace, "Cannot obtain current time of day - returning %s(%d) to caller\n", vosk_name(VOSK_FAILURE),
             VOSK_FAILURE);
    return VOSK_FAILURE;
  }
  put_field(static_cast<std::uint64_t>(now.tv_sec), tod64rep, kSecondsDigits);
  put_field(static_cast<std::uint64_t>(now.tv_usec), tod64rep + kSecondsDigits, kMicrosecondsDigits);
  *seconds = now.tv_sec;
  VK_TRACE(trace, "Time of day value %d secs %d usecs converted to base-64 rep of %s\nReturning %s(%d) to caller\n",
           low32(now.tv_sec), low32(now.tv_usec), tod64rep, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

int vk_conv_base_64_time(int trace_on, const char *trace_path, const char *tod64rep, timeval *tbuf) noexcept {
  const tracer trace(trace_on, trace_path, "vk_conv_base_64_time");
  if (!is_set(tod64rep)) {
    VK_TRACE(trace, "Called with a NULL string for a base-64 TOD\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (tbuf == nullptr) {
    // The name of the code stands glued to the end of this text, on purpose.
    VK_TRACE(trace, "No data area provided in tbuf parameter\nReturning %s(%d) to caller\nVOSK_INV_PARAM4",
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  char seconds[kSecondsDigits + 1] = {}, microseconds[kMicrosecondsDigits + 1] = {};
  const std::size_t length = strnlen(tod64rep, kTimeDigits);
  const std::size_t seconds_length = std::min(length, kSecondsDigits);
  std::memcpy(seconds, tod64rep, seconds_length);
  std::memcpy(microseconds, tod64rep + seconds_length, length - seconds_length);

  tbuf->tv_sec = static_cast<std::int64_t>(vk_a64l(seconds));
  if (tbuf->tv_sec == 0) {
    *tbuf = {};
    VK_TRACE(trace, "Secs %s translated to %d - assuming an invalid time rep provided\nReturning %s(%d) to caller\n",
             seconds, 0, vosk_name(VOSK_INV_FID), VOSK_INV_FID);
    return VOSK_INV_FID;
  }
  const int usecs = low32(vk_a64l(microseconds));
  tbuf->tv_usec = usecs;
  if (usecs > kLastMicrosecond) {
    *tbuf = {};
    VK_TRACE(trace, "Usecs %s translated to %d - assuming an invalid time rep provided\nReturning %s(%d) to caller\n",
             microseconds, usecs, vosk_name(VOSK_INV_FID), VOSK_INV_FID);
    return VOSK_INV_FID;
  }
  VK_TRACE(trace, "Time base-64 rep of %s converted to %d secs %d usecs\nReturning %s(%d) to caller\n", tod64rep,
           low32(tbuf->tv_sec), usecs, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
