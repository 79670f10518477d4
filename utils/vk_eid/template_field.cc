// The error template identifier.
#include <cstdint>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"
#include "utils/vk_utils/base64.h"

namespace vk {

int vk_get_base_64_templ(int trace_on, const char *trace_path, std::uint32_t templ_id, char *templ64rep) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_base_64_templ");
  if (templ64rep == nullptr) {
    VK_TRACE(trace, "Called with a NULL pointer for templ64rep\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  put_field(templ_id, templ64rep, kLocationDigits);
  VK_TRACE(trace, "Converted template ID %d to base-64 value of %s\nReturning %s(%d) to the caller\n", low32(templ_id),
           templ64rep, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

int vk_conv_base_64_templ(int trace_on, const char *trace_path, const char *templ64rep,
                          unsigned int *templ_id) noexcept {
  const tracer trace(trace_on, trace_path, "vk_conv_base_64_templ");
  if (templ64rep == nullptr) {
    VK_TRACE(trace, "Called with a NULL pointer for templ64rep\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (templ_id == nullptr) {
    VK_TRACE(trace, "Asked to translate a template ID of %d, which seems invalid\nReturning %s(%d) to the caller", 0,
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  *templ_id = static_cast<unsigned int>(vk_a64l(templ64rep));
  if (*templ_id == 0) {  // the encoder makes such a field, the decoder refuses it; both are meant
    VK_TRACE(trace, "Cannot convert base-64 valueof %s to a valid template ID value\nReturning %s(%d) to caller\n",
             templ64rep, vosk_name(VOSK_FAILURE), VOSK_FAILURE);
    return VOSK_FAILURE;
  }
  VK_TRACE(trace, "Converted template base-64 value of %s to %d\nReturning %s(%d) to the caller\n", templ64rep,
           low32(*templ_id), vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
