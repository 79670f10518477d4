#include <syslog.h>

#include <cstdint>
#include <iterator>

#include "qx_vosk.h"
#include "utils/vk_debug/trace.h"

namespace vk {

// By event type. VOSK_STATE ranks below VOSK_PERF, on purpose.
static constexpr int kPriorities[] = {LOG_EMERG,    // VOSK_EMERG
                                      LOG_ERR,      // VOSK_ERROR
                                      LOG_NOTICE,   // VOSK_STATE
                                      LOG_WARNING,  // VOSK_PERF
                                      LOG_INFO,     // VOSK_TRACE
                                      LOG_DEBUG,    // VOSK_RECOV
                                      LOG_DEBUG};   // VOSK_DEBUG
static_assert(std::size(kPriorities) == VOSK_DEBUG + 1);

}  // namespace vk

void vk_determine_bsd_priority(int trace_on, const char *trace_path, std::uint32_t event_type, std::int32_t *priority,
                               int mark, std::uint32_t *state) {
  const vk::tracer trace(trace_on, trace_path, "vk_determine_bsd_priority");
  if (event_type < std::size(vk::kPriorities)) {
    *priority = vk::kPriorities[event_type];
  } else {
    VK_TRACE(trace, "Invalid VOSK Event Type %d - mapping to type %s(%d)\n", vk::low32(event_type), "VOSK_DEBUG",
             VOSK_DEBUG);
    *priority = LOG_DEBUG;
    if (mark == 1) state[VK_FLAG_BAD_EVENT_TYPE] = 1;
  }
  VK_TRACE(trace, "Assigning SysLog priority of %d to event type %d\n", *priority, vk::low32(event_type));
}
