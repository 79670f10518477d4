// Recording an incident in the System Log.
#include <syslog.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "lib/report.h"
#include "lib/vk_log_error/record_text.h"
#include "utils/file_size_guard.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"

namespace vk {
namespace {

constexpr std::size_t kFileInfo = 46, kMessageBound = 946;
constexpr char kRoutine[] = "vk_log_error";

// The attentions in the order in which they are raised; the last one is the result.
struct attention {
  int first_flag, last_flag;  // any of these raises it
  int code, message;
};
constexpr attention kAttentions[] = {
    {VK_FLAG_NO_RESOURCE, VK_FLAG_NO_RESOURCE, VK_NO_RESOURCE_NAME, 2},
    {VK_FLAG_NO_FILE_NAME, VK_FLAG_BAD_LINE, VK_NO_FILE_INFO, 3},
    {VK_FLAG_NO_MESSAGE, VK_FLAG_NO_MESSAGE, VK_NO_SYSLOG_MSG, 5},
    {VK_FLAG_BAD_EVENT_TYPE, VK_FLAG_BAD_EVENT_TYPE, VK_BAD_EVENT_TYPE, 12},
    {VK_FLAG_NO_DETAIL, VK_FLAG_NO_DETAIL, VK_NO_DETAILS, 6},
    {VK_FLAG_BAD_DETAIL_SIZE, VK_FLAG_BAD_DETAIL_SIZE, VK_BAD_DETAIL_SIZE, 7},
    {VK_FLAG_SYSLOG_FAILED, VK_FLAG_SYSLOG_FAILED, VK_SYSLOG_FAILED, 32},  // nothing raises it; its place is kept
    {VK_FLAG_NO_EID_POINTER, VK_FLAG_NO_EID_POINTER, VK_NO_EID_PTR, 9},
    {VK_FLAG_NO_EID, VK_FLAG_NO_EID, VK_NO_UNIQUE_EID, 10},
    {VK_FLAG_BOTH_DETAILS, VK_FLAG_BOTH_DETAILS, VK_DETAIL_BOTH, 8},
    {VK_FLAG_COPY_FAILED, VK_FLAG_COPY_FAILED, VK_COPY_FAILED, 4}};

bool applies(const attention &row, const std::uint32_t (&flags)[VK_FLAG_COUNT]) noexcept {
  for (int flag = row.first_flag; flag <= row.last_flag; ++flag)
    if (flags[flag] != 0) return true;
  return false;
}

int raise_attentions(const std::uint32_t (&flags)[VK_FLAG_COUNT], const char *detail_file) noexcept {
  bool raised = false;
  int result = VK_SUCCESS;
  for (const attention &row : kAttentions) {
    if (!applies(row, flags)) continue;
    result = row.code == VK_COPY_FAILED ? report(row.code, row.message, kRoutine, detail_file, kDumpDirectory)
                                        : report(row.code, row.message, kRoutine);
    raised = true;
  }
  return raised ? result : cu_set_no_error_1();
}

const char *or_none(const char *text) noexcept {
  return text != nullptr ? text : "(none)";
}

// Sends the record, which serves as the format itself; as_format keeps every '%' in it from being read as a conversion.
void send(const char *resource, int priority, const char *record, int errno_at_entry) noexcept {
  char buffer[kLogFormat];
  const char *const format = as_format(record, buffer);
  openlog(resource, LOG_PID | LOG_NDELAY, LOG_DAEMON);
  errno = errno_at_entry;  // for "%m"
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  syslog(priority, format);
#pragma GCC diagnostic pop
  closelog();
}

}  // namespace
}  // namespace vk

int vk_log_error_1(vk_eid_t *eid, const char *assoc_fid, const char *resource, const char *lpp, const char *source_file,
                   const char *sid, int line, std::uint64_t /*reserved*/, int event_type, std::uint32_t template_id,
                   const void *detail_data, std::int64_t detail_len, const char *detail_file, const char *message,
                   ...) {
  const int errno_at_entry = errno;
  const bool has_file = vk::is_set(detail_file);
  const bool copies_file = has_file && detail_data == nullptr;
  char trace_path[vk::kPathSize];
  const int trace_on = vk::decide_tracing(trace_path);
  const vk::tracer trace(trace_on, trace_path, vk::kRoutine);
  VK_TRACE(trace,
           "Called with these params:\nEvent Type %d, Template 0x%x, Resource %s\n"
           "Detail Data Ptr 0x%x, Detail Data Len %d, Detail Data File %s\nSource File %s, SID %s, Line %d, LPP %s\n"
           "Assoc FID %s\n",
           event_type, template_id, vk::or_none(resource), vk::low32_of_address(detail_data), vk::low32(detail_len),
           vk::or_none(detail_file), vk::or_none(source_file), vk::or_none(sid), line, vk::or_none(lpp),
           vk::or_none(assoc_fid));

  std::uint32_t flags[VK_FLAG_COUNT] = {};
  flags[VK_FLAG_NO_RESOURCE] = !vk::is_set(resource);
  flags[VK_FLAG_NO_FILE_NAME] = !vk::is_set(source_file);
  flags[VK_FLAG_NO_VERSION] = !vk::is_set(sid);
  flags[VK_FLAG_NO_PRODUCT] = !vk::is_set(lpp);
  flags[VK_FLAG_BAD_LINE] = line < 1;
  flags[VK_FLAG_NO_MESSAGE] = !vk::is_set(message);
  flags[VK_FLAG_NO_DETAIL] = detail_data == nullptr && !has_file;
  flags[VK_FLAG_BOTH_DETAILS] = detail_data != nullptr && has_file;
  flags[VK_FLAG_BAD_DETAIL_SIZE] = detail_data != nullptr && !has_file && detail_len == 0;
  flags[VK_FLAG_NO_EID_POINTER] = eid == nullptr;

  std::int32_t priority = LOG_DEBUG;
  vk_determine_bsd_priority(trace_on, trace_path, static_cast<std::uint32_t>(event_type), &priority, 1, flags);

  vk_eid_t made = {};
  std::int64_t seconds = 0;
  flags[VK_FLAG_NO_EID] = vk_generate_eid_2(static_cast<unsigned int>(trace_on), trace_path, nullptr, 0, LOG_DAEMON,
                                            static_cast<std::uint32_t>(priority), &seconds, made) != VOSK_SUCCESS;

  char copy_path[vk::kPathSize];
  copy_path[0] = '\0';
  if (copies_file && vk_make_dump_file_copy(trace_on, trace_path, detail_file, copy_path) != VOSK_SUCCESS) {
    flags[VK_FLAG_COPY_FAILED] = 1;
    copy_path[0] = '\0';  // the routine leaves the caller's own path there, which this record does not cite
  }

  char template_text[16], location[vk::kFileInfo];
  *std::to_chars(template_text, template_text + sizeof template_text - 1, template_id, 16).ptr = '\0';
  (void)vk_make_file_info_msg(trace_on, trace_path, location, lpp, source_file, sid, line, flags);
  vk::text_builder<vk::kLogRecord + 1> record;
  for (const char *piece :
       {"(Recorded using libqx_vosk.a cv 2):::Error ID: ", static_cast<const char *>(made),
        ":::Reference ID: ", vk::printable(assoc_fid), ":::Template ID: ", static_cast<const char *>(template_text),
        ":::Details File: ", static_cast<const char *>(copy_path), ":::Location: "})
    record.append(piece);
  record.append({location, sizeof location});
  record.append(":::");
  if (flags[VK_FLAG_NO_MESSAGE] == 0) {
    char text[vk::kMessageBound];
    text[0] = '\0';
    va_list args;
    va_start(args, message);
    errno = errno_at_entry;  // for "%m"
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the caller's format, with the caller's arguments
    if (std::vsnprintf(text, sizeof text, message, args) >= 0) record.append(text);
#pragma GCC diagnostic pop
    va_end(args);
  }
  vk::send(resource, priority, record.c_str(), errno_at_entry);

  // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): the first flag says that the pointer is not null
  if (flags[VK_FLAG_NO_EID_POINTER] == 0 && flags[VK_FLAG_NO_EID] == 0) std::memcpy(*eid, made, sizeof made);
  return vk::raise_attentions(flags, detail_file);
}
