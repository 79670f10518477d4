// The syslog selector: facility and priority, each plus 1 so that neither digit is ever '.'.
#include <cstdint>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"
#include "utils/vk_utils/base64.h"

namespace vk {

static constexpr unsigned int kHighestFacilityNumber = 23;

int vk_get_base_64_selector(int trace_on, const char *trace_path, unsigned int facility, unsigned int priority,
                            char *sel64rep) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_base_64_selector");
  const unsigned int number = facility_number(facility);
  if (facility > kHighestFacility) {
    VK_TRACE(trace, "facility %d invalid - returning %s(%d)\n", low32(number), vosk_name(VOSK_INV_PARAM3),
             VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (priority > kHighestPriority) {
    VK_TRACE(trace, "priority value %d invalid - returning %s(%d)\n", low32(priority), vosk_name(VOSK_INV_PARAM4),
             VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  if (sel64rep == nullptr) {
    VK_TRACE(trace, "sel64rep pointer 0x%x invalid - returning %s(%d)\n", 0u, vosk_name(VOSK_INV_PARAM5),
             VOSK_INV_PARAM5);
    return VOSK_INV_PARAM5;
  }
  sel64rep[0] = vk_digits[number + 1];
  sel64rep[1] = vk_digits[priority + 1];
  std::memcpy(sel64rep + 2, "....", 5);
  VK_TRACE(trace, "Facility %d and priority %d translated to code \"%s\" - returning %s(%d)", low32(number),
           low32(priority), sel64rep, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

// Two digits that are not '.', then four that are. A string that ends early fails at its zero byte.
static bool has_selector_shape(const char *selector) noexcept {
  if (selector[0] == '.' || selector[1] == '\0' || selector[1] == '.') return false;
  for (std::size_t i = 2; i < kLocationDigits; ++i)
    if (selector[i] != '.') return false;
  return true;
}

int vk_conv_base_64_selector(int trace_on, const char *trace_path, const char *selector, unsigned int *facility,
                             unsigned int *priority) noexcept {
  const tracer trace(trace_on, trace_path, "vk_conv_base_64_selector");
  if (!is_set(selector)) {
    VK_TRACE(trace, "Selector \"%s\" at location 0x%x appears invalid - returning %s(%d)", printable(selector),
             low32_of_address(selector), vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (facility == nullptr) {
    VK_TRACE(trace, "Facility pointer 0x%x invalid - returning %s(%d)", 0u, vosk_name(VOSK_INV_PARAM4),
             VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  if (priority == nullptr) {
    VK_TRACE(trace, "Priority pointer 0x%x invalid - returning %s(%d)", 0u, vosk_name(VOSK_INV_PARAM5),
             VOSK_INV_PARAM5);
    return VOSK_INV_PARAM5;
  }
  if (!has_selector_shape(selector)) {
    VK_TRACE(trace, "Selector \"%s\" invalid - returning %s(%d)", selector, vosk_name(VOSK_INV_PARAM3),
             VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  const char facility_digit[] = {selector[0], '.', '.', '.', '.', '.', '\0'};
  const std::uint64_t number = vk_a64l(facility_digit) - 1;
  if (number > kHighestFacilityNumber) {
    VK_TRACE(trace, "Selector \"%s\" yielded invalid facility value %d - returning %s(%d)", selector, low32(number),
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  const std::uint64_t level = vk_a64l(selector + 1) - 1;
  if (level > kHighestPriority) {
    VK_TRACE(trace, "Selector \"%s\" yielded invalid priority value %d - returning %s(%d)", selector, low32(level),
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  *facility = static_cast<unsigned int>(number) * 8;
  *priority = static_cast<unsigned int>(level);
  VK_TRACE(trace, "Selector \"%s\" yielded:\n\tFacility %d\tPriority %d\nReturning %s(%d)", selector, low32(*facility),
           low32(*priority), vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
