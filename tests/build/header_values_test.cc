// The values and shapes of the public header, against the interface as it is agreed with callers.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <type_traits>

#include "qx_vosk.h"

namespace {

struct Value {
  const char *name;
  long value, agreed;
};
#define VALUE(name, agreed) \
  { #name, name, agreed }

TEST(HeaderValues, AreTheAgreedOnes) {
  const Value values[] = {VALUE(VOSK_SUCCESS, 0),
                          VALUE(VOSK_FAILURE, -1),
                          VALUE(VOSK_INV_PARAM1, -2),
                          VALUE(VOSK_INV_PARAM2, -3),
                          VALUE(VOSK_INV_PARAM3, -4),
                          VALUE(VOSK_INV_PARAM4, -5),
                          VALUE(VOSK_INV_PARAM5, -6),
                          VALUE(VOSK_INV_PARAM6, -7),
                          VALUE(VOSK_INV_PARAM7, -8),
                          VALUE(VOSK_INV_PARAM8, -9),
                          VALUE(VOSK_INV_PARAM9, -10),
                          VALUE(VOSK_INV_PARAMCOMBO, -11),
                          VALUE(VOSK_DIR_ACCESS, -13),
                          VALUE(VOSK_DIR_MISSING, -14),
                          VALUE(VOSK_STALE_FS, -15),
                          VALUE(VOSK_PERM_DENIED, -16),
                          VALUE(VOSK_NOT_DIR, -17),
                          VALUE(VOSK_NO_SPACE, -18),
                          VALUE(VOSK_NO_RESOURCE, -20),
                          VALUE(VOSK_LINK_LOOP, -21),
                          VALUE(VOSK_NAME_TOO_LONG, -22),
                          VALUE(VOSK_IS_DIR, -23),
                          VALUE(VOSK_FILE_MISSING, -24),
                          VALUE(VOSK_FILE_ACCESS, -25),
                          VALUE(VOSK_FILE_CORRUPT, -26),
                          VALUE(VOSK_FILE_EXIST, -27),
                          VALUE(VOSK_LOCK_FAILED, -28),
                          VALUE(VOSK_UNLOCK_FAILED, -29),
                          VALUE(VOSK_IO_ERROR, -30),
                          VALUE(VOSK_INV_ENV, -31),
                          VALUE(VOSK_INV_FID, -36),
                          VALUE(VOSK_STACK_STEP_FAILED, -38),
                          VALUE(VOSK_UNSUPPORTED, -99),

                          VALUE(VK_SUCCESS, 0),
                          VALUE(VK_INHERIT_SUCCESS, 1),
                          VALUE(VK_UNKNOWN_OPTION, 12),
                          VALUE(VK_INHERIT_INV, 13),
                          VALUE(VK_ENV_EXIST, 14),
                          VALUE(VK_NO_VK_ENVIR, 15),
                          VALUE(VK_ENV_FAILED, 16),
                          VALUE(VK_ENV_CORRUPT, 17),
                          VALUE(VK_NO_MEMORY, 18),
                          VALUE(VK_STACK_ACCESS, 20),
                          VALUE(VK_IO_FAILED, 41),
                          VALUE(VK_UNEXPECTED, 99),

                          VALUE(VK_DETAIL_BOTH, 26),
                          VALUE(VK_NO_EID_PTR, 27),
                          VALUE(VK_NO_RESOURCE_NAME, 28),
                          VALUE(VK_NO_FILE_INFO, 29),
                          VALUE(VK_NO_DEFAULT_MSG, 30),
                          VALUE(VK_NO_MSG_INFO, 31),
                          VALUE(VK_COPY_FAILED, 32),
                          VALUE(VK_BAD_EVENT_TYPE, 33),
                          VALUE(VK_NO_SYSLOG_MSG, 34),
                          VALUE(VK_NO_DETAILS, 35),
                          VALUE(VK_BAD_DETAIL_SIZE, 36),
                          VALUE(VK_NO_UNIQUE_EID, 37),
                          VALUE(VK_SYSLOG_FAILED, 38),
                          VALUE(VK_RECORD_TRUNCATED, 44),

                          VALUE(VOSK_EMERG, 0),
                          VALUE(VOSK_ERROR, 1),
                          VALUE(VOSK_STATE, 2),
                          VALUE(VOSK_PERF, 3),
                          VALUE(VOSK_TRACE, 4),
                          VALUE(VOSK_RECOV, 5),
                          VALUE(VOSK_DEBUG, 6),

                          VALUE(VK_STACK_CREAT, 1),
                          VALUE(VK_STACK_INHERIT, 2),
                          VALUE(VK_MESSAGE_COUNT, 45),
                          VALUE(VK_EID_SIZE, 43),
                          VALUE(VK_ADDRESS_SLOT, 46),

                          VALUE(VK_FLAG_NO_FILE_NAME, 5),
                          VALUE(VK_FLAG_NO_VERSION, 6),
                          VALUE(VK_FLAG_NO_PRODUCT, 7),
                          VALUE(VK_FLAG_BAD_LINE, 8),
                          VALUE(VK_FLAG_BAD_EVENT_TYPE, 15),
                          VALUE(VK_FLAG_NO_MESSAGE, 16),
                          VALUE(VK_FLAG_BAD_DETAIL_SIZE, 17),
                          VALUE(VK_FLAG_SYSLOG_FAILED, 18),
                          VALUE(VK_FLAG_COUNT, 19)};
  std::set<std::string> names;
  for (const Value &value : values) {
    EXPECT_EQ(value.value, value.agreed) << value.name;
    EXPECT_TRUE(names.insert(value.name).second) << value.name;
  }
}

// What a caller compiled against an older header relies on.
static_assert(std::is_same_v<vk_eid_t, char[43]>);
static_assert(std::is_same_v<decltype(vk_mesgtbl_vk_lib), const char *const[45]>);
static_assert(std::is_same_v<decltype(fclear), int(int, std::int64_t)>);
static_assert(std::is_same_v<decltype(vk_test_for_file), int(int, const char *, const char *)>);
static_assert(std::is_same_v<decltype(vk_test_for_dir), int(int, const char *, const char *)>);
static_assert(std::is_same_v<decltype(vk_determine_max_fsize),
                             int(int, const char *, const char *, std::int64_t, std::int64_t, std::int64_t *)>);
static_assert(std::is_same_v<decltype(vk_allocate_file),
                             int(int, const char *, const char *, std::int64_t, std::int64_t, std::int64_t *)>);
static_assert(std::is_same_v<decltype(vk_make_dump_file_copy), int(int, const char *, const char *, char *)>);
static_assert(std::is_same_v<decltype(vk_debug), int(const char *, const char *, const char *, ...)>);
static_assert(std::is_same_v<decltype(vk_is_debug_file_set), int(char *)>);
static_assert(std::is_same_v<decltype(vk_create_debug_file), int(const char *)>);
static_assert(std::is_same_v<decltype(vk_get_msgcat_name), char *(char *, const char *)>);
static_assert(std::is_same_v<decltype(vk_init_1), int(int)>);
static_assert(std::is_same_v<decltype(vk_init_main_1), int(int, const char *, int, int)>);
static_assert(std::is_same_v<decltype(vk_test_stack_1), int()>);
static_assert(std::is_same_v<decltype(vk_test_stack_main_1), int(int)>);
static_assert(std::is_same_v<decltype(vk_push_stack_1), decltype(vk_push_stack_cmd_1)>);
static_assert(std::is_same_v<decltype(vk_display_fid_1), int(const char *)>);
static_assert(std::is_same_v<decltype(vk_display_fid_main_1), int(const char *, int)>);

#if defined(__x86_64__)
static_assert(sizeof(vk_syslog_field_t) == 32 && sizeof(vk_syslog_tmpl_t) == 48);
#endif

}  // namespace
