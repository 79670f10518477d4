#include "utils/code_names.h"

#include <span>

#include "qx_vosk.h"

namespace vk {
namespace {

struct code_name {
  int code;
  const char *name;
};

#define VK_CODE(name) \
  { name, #name }

constexpr code_name kUtilityCodes[] = {
    VK_CODE(VOSK_SUCCESS),       VK_CODE(VOSK_FAILURE),     VK_CODE(VOSK_INV_PARAM1),   VK_CODE(VOSK_INV_PARAM2),
    VK_CODE(VOSK_INV_PARAM3),    VK_CODE(VOSK_INV_PARAM4),  VK_CODE(VOSK_INV_PARAM5),   VK_CODE(VOSK_INV_PARAM6),
    VK_CODE(VOSK_INV_PARAM7),    VK_CODE(VOSK_INV_PARAM8),  VK_CODE(VOSK_INV_PARAM9),   VK_CODE(VOSK_INV_PARAMCOMBO),
    VK_CODE(VOSK_DIR_ACCESS),    VK_CODE(VOSK_DIR_MISSING), VK_CODE(VOSK_STALE_FS),     VK_CODE(VOSK_PERM_DENIED),
    VK_CODE(VOSK_NOT_DIR),       VK_CODE(VOSK_NO_SPACE),    VK_CODE(VOSK_NO_RESOURCE),  VK_CODE(VOSK_LINK_LOOP),
    VK_CODE(VOSK_NAME_TOO_LONG), VK_CODE(VOSK_IS_DIR),      VK_CODE(VOSK_FILE_MISSING), VK_CODE(VOSK_FILE_ACCESS),
    VK_CODE(VOSK_FILE_CORRUPT),  VK_CODE(VOSK_FILE_EXIST),  VK_CODE(VOSK_LOCK_FAILED),  VK_CODE(VOSK_UNLOCK_FAILED),
    VK_CODE(VOSK_IO_ERROR),      VK_CODE(VOSK_INV_ENV),     VK_CODE(VOSK_INV_FID),      VK_CODE(VOSK_STACK_STEP_FAILED),
    VK_CODE(VOSK_UNSUPPORTED)};

constexpr code_name kReportedCodes[] = {
    VK_CODE(VK_SUCCESS),        VK_CODE(VK_INHERIT_SUCCESS), VK_CODE(VK_UNKNOWN_OPTION),   VK_CODE(VK_INHERIT_INV),
    VK_CODE(VK_ENV_EXIST),      VK_CODE(VK_NO_VK_ENVIR),     VK_CODE(VK_ENV_FAILED),       VK_CODE(VK_ENV_CORRUPT),
    VK_CODE(VK_NO_MEMORY),      VK_CODE(VK_STACK_ACCESS),    VK_CODE(VK_IO_FAILED),        VK_CODE(VK_UNEXPECTED),
    VK_CODE(VK_DETAIL_BOTH),    VK_CODE(VK_NO_EID_PTR),      VK_CODE(VK_NO_RESOURCE_NAME), VK_CODE(VK_NO_FILE_INFO),
    VK_CODE(VK_NO_DEFAULT_MSG), VK_CODE(VK_NO_MSG_INFO),     VK_CODE(VK_COPY_FAILED),      VK_CODE(VK_BAD_EVENT_TYPE),
    VK_CODE(VK_NO_SYSLOG_MSG),  VK_CODE(VK_NO_DETAILS),      VK_CODE(VK_BAD_DETAIL_SIZE),  VK_CODE(VK_NO_UNIQUE_EID),
    VK_CODE(VK_SYSLOG_FAILED),  VK_CODE(VK_RECORD_TRUNCATED)};

#undef VK_CODE

const char *name_in(std::span<const code_name> names, int code) noexcept {
  for (const code_name &row : names)
    if (row.code == code) return row.name;
  return "(no name)";
}

}  // namespace

const char *vosk_name(int code) noexcept {
  return name_in(kUtilityCodes, code);
}

const char *vk_name(int code) noexcept {
  return name_in(kReportedCodes, code);
}

}  // namespace vk
