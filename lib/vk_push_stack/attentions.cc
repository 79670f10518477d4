#include "lib/vk_push_stack/attentions.h"

#include "lib/report.h"
#include "lib/vk_push_stack/stack_file.h"
#include "utils/paths.h"

namespace vk {
namespace {

constexpr unsigned long bit(int flag) noexcept {
  return 1UL << flag;
}

constexpr unsigned long kNoDefaultMessage = bit(VK_FLAG_NO_DEFAULT_MSG);
constexpr unsigned long kCatalogueIncomplete =
    bit(VK_FLAG_NO_CATALOGUE) | bit(VK_FLAG_BAD_SET) | bit(VK_FLAG_BAD_MSG_NUMBER);
constexpr unsigned long kFileInfoIncomplete =
    bit(VK_FLAG_NO_FILE_NAME) | bit(VK_FLAG_NO_VERSION) | bit(VK_FLAG_NO_PRODUCT) | bit(VK_FLAG_BAD_LINE);

enum class inserts { routine, record_size, failed_copy };

// Raised in this order when one of `any_of`, all of `all_of` and none of `none_of` are set; the last one is the result.
struct attention {
  unsigned long any_of, all_of, none_of;
  int code, message;
  inserts with;
};
constexpr attention kAttentions[] = {
    {bit(VK_FLAG_NO_RESOURCE), 0, 0, VK_NO_RESOURCE_NAME, 2, inserts::routine},
    {kNoDefaultMessage, 0, 0, VK_NO_DEFAULT_MSG, 15, inserts::routine},
    {kCatalogueIncomplete, 0, kNoDefaultMessage, VK_NO_MSG_INFO, 14, inserts::routine},
    {kFileInfoIncomplete, 0, 0, VK_NO_FILE_INFO, 3, inserts::routine},
    {kCatalogueIncomplete, kNoDefaultMessage, 0, VK_NO_FILE_INFO, 16, inserts::routine},
    {bit(VK_FLAG_NO_DETAIL), 0, 0, VK_NO_DETAILS, 6, inserts::routine},
    {bit(VK_FLAG_NO_EID_POINTER), 0, 0, VK_NO_EID_PTR, 9, inserts::routine},
    {bit(VK_FLAG_NO_EID), 0, 0, VK_NO_UNIQUE_EID, 10, inserts::routine},
    {bit(VK_FLAG_OVER_LENGTH), 0, 0, VK_RECORD_TRUNCATED, 18, inserts::record_size},
    {bit(VK_FLAG_BOTH_DETAILS), 0, 0, VK_DETAIL_BOTH, 8, inserts::routine},
    {bit(VK_FLAG_COPY_FAILED), 0, 0, VK_COPY_FAILED, 4, inserts::failed_copy}};

constexpr char kRoutine[] = "vk_push_stack";

int raise(const attention &row, const incident &in) noexcept {
  if (row.with == inserts::record_size) return report(row.code, row.message, static_cast<int>(stack_file::kRecordMax));
  if (row.with == inserts::failed_copy) return report(row.code, row.message, kRoutine, in.detail_file, kDumpDirectory);
  return report(row.code, row.message, kRoutine);
}

}  // namespace

int raise_attentions(const incident &in, const incident_flags &flags) noexcept {
  const unsigned long set = flags.to_ulong();
  bool raised = false;
  int result = VK_SUCCESS;
  for (const attention &row : kAttentions) {
    if ((set & row.any_of) == 0 || (set & row.all_of) != row.all_of || (set & row.none_of) != 0) continue;
    result = raise(row, in);
    raised = true;
  }
  return raised ? result : cu_set_no_error_1();
}

}  // namespace vk
