// Making identifiers.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"

namespace vk {
namespace {

constexpr char kAddressVariable[] = "VOSKADDR";
constexpr std::size_t kAddressValue = kAddressDigits + 1;

// The pieces of an identifier while it is made.
class identifier {
 public:
  identifier(int trace_on, const char *trace_path) noexcept
      : trace_on_(trace_on), trace_path_(trace_path), trace_(trace_on, trace_path, "vk_generate_eid") {}

  const tracer &trace() const noexcept { return trace_; }

  // The time comes first, so that it is the time of the call's start.
  int take_time_and_address() noexcept {
    if (vk_get_base_64_time(trace_on_, trace_path_, time_, &seconds_) != VOSK_SUCCESS) return VOSK_FAILURE;
    address_ = getenv(kAddressVariable);
    if (!is_set(address_)) {
      VK_TRACE(trace_, "Cannot find %s data in environment\nReturning %s(%d) to the caller", kAddressVariable,
               vosk_name(VOSK_FAILURE), VOSK_FAILURE);
      return VOSK_FAILURE;
    }
    if (strnlen(address_, kAddressValue + 1) != kAddressValue) {
      VK_TRACE(trace_,
               "Value stored in environment for %s does not appear to be valie: %s\nReturning %s(%d) to the caller",
               kAddressVariable, address_, vosk_name(VOSK_FAILURE), VOSK_FAILURE);
      return VOSK_FAILURE;
    }
    return VOSK_SUCCESS;
  }

  int set_stack(int version, const char *stack_file) noexcept {
    set_header(version, VK_LOCATION_STACK);
    const int result = vk_get_base_64_inode(trace_on_, trace_path_, stack_file, location_);
    if (result == VOSK_SUCCESS) return result;
    if (result != VOSK_INV_PARAM3) return VOSK_FAILURE;
    VK_TRACE(trace_,
             "VOSK Error Stack File %s does not exist - caller must be repaired\nReturning %s(%d) to the caller\n",
             stack_file, vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }

  int set_template(int version, std::uint32_t templ_id) noexcept {
    set_header(version, VK_LOCATION_TEMPLATE);
    return vk_get_base_64_templ(trace_on_, trace_path_, templ_id, location_);
  }

  int set_selector(int version, unsigned int facility, unsigned int priority) noexcept {
    set_header(version, VK_LOCATION_SYSLOG);
    const int result = vk_get_base_64_selector(trace_on_, trace_path_, facility, priority, location_);
    return result == VOSK_SUCCESS ? result : VOSK_FAILURE;
  }

  // Hands the whole out; the only step that touches the caller's memory.
  int compose(std::int64_t *seconds, char *eid) const noexcept {
    std::memcpy(eid, header_, kHeaderDigits);
    std::memcpy(eid + kLocationAt, location_, kLocationDigits);
    std::memcpy(eid + kTimeAt, time_, kTimeDigits);
    std::memcpy(eid + kAddressAt, address_, kAddressValue);
    eid[kEidDigits] = '\0';
    *seconds = seconds_;
    VK_TRACE(trace_, "Created VOSK Error ID %s\nReturning %s(%d) to caller\n", eid, vosk_name(VOSK_SUCCESS),
             VOSK_SUCCESS);
    return VOSK_SUCCESS;
  }

 private:
  // Of a version and a location that there are: it cannot fail.
  void set_header(int version, unsigned int location) noexcept {
    (void)vk_get_base_64_hdr(trace_on_, trace_path_, version, location, header_);
  }

  const int trace_on_;
  const char *const trace_path_;
  const tracer trace_;
  char header_[kHeaderDigits + 1] = "6";  // what a version 2 call that asks for nothing gets
  char location_[kLocationDigits + 1] = "......";
  char time_[kTimeDigits + 1] = {};
  const char *address_ = nullptr;
  std::int64_t seconds_ = 0;
};

}  // namespace
}  // namespace vk

int vk_generate_eid(unsigned int trace_on, const char *trace_path, const char *stack_file, std::uint32_t templ_id,
                    std::int64_t *seconds, char *eid) {
  vk::identifier made(static_cast<int>(trace_on), trace_path);
  if (templ_id != 0 && stack_file != nullptr) {
    VK_TRACE(made.trace(),
             "Caller requested a vk_eid_t be generated for both a stack and a error template\nStack file is %s\n"
             "template is %d\nReturning %s(%d) to caller\n",
             stack_file, vk::low32(templ_id), vk::vosk_name(VOSK_INV_PARAMCOMBO), VOSK_INV_PARAMCOMBO);
    return VOSK_INV_PARAMCOMBO;
  }
  int result = made.take_time_and_address();
  if (result == VOSK_SUCCESS)
    result = stack_file != nullptr ? made.set_stack(1, stack_file) : made.set_template(1, templ_id);
  return result == VOSK_SUCCESS ? made.compose(seconds, eid) : result;
}

int vk_generate_eid_2(unsigned int trace_on, const char *trace_path, const char *stack_file, std::uint32_t templ_id,
                      std::uint32_t facility, std::uint32_t priority, std::int64_t *seconds, char *eid) {
  vk::identifier made(static_cast<int>(trace_on), trace_path);
  // 23 is compared with the shifted facility, on purpose: a stack with a facility from 24 on passes, and the selector
  // below replaces it.
  if (stack_file != nullptr && (templ_id != 0 || facility <= 23)) {
    VK_TRACE(made.trace(),
             "Caller requested a vk_eid_t be generated for both a stack and either an error template or  Syslog "
             "messges\nStack file is %s\ntemplate is %d\nSyslog facility is %d\nReturning %s(%d) to caller\n",
             stack_file, vk::low32(templ_id), vk::low32(vk::facility_number(facility)),
             vk::vosk_name(VOSK_INV_PARAMCOMBO), VOSK_INV_PARAMCOMBO);
    return VOSK_INV_PARAMCOMBO;
  }
  int result = made.take_time_and_address();
  if (result == VOSK_SUCCESS && stack_file != nullptr) result = made.set_stack(2, stack_file);
  if (result == VOSK_SUCCESS && templ_id != 0) result = made.set_template(2, templ_id);
  if (result == VOSK_SUCCESS && facility <= vk::kHighestFacility) result = made.set_selector(2, facility, priority);
  return result == VOSK_SUCCESS ? made.compose(seconds, eid) : result;
}
