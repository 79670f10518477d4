#include "lib/vk_push_stack/push.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lib/report.h"
#include "lib/variables.h"
#include "lib/vk_push_stack/attentions.h"
#include "lib/vk_push_stack/creation_wait.h"
#include "lib/vk_push_stack/ctrl_info.h"
#include "lib/vk_push_stack/env_info.h"
#include "lib/vk_push_stack/reclamation.h"
#include "lib/vk_push_stack/record.h"
#include "lib/vk_push_stack/same_file.h"
#include "lib/vk_push_stack/stack_access.h"
#include "lib/vk_push_stack/whole_records.h"
#include "lib/vk_test_stack/test_environment.h"
#include "utils/code_names.h"
#include "utils/file_size_guard.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

const char *or_none(const char *text) noexcept {
  return text != nullptr ? text : "(none)";
}

// A push whose trace file is its stack file neither traces nor creates it: every trace entry would drop the lock on the
// stack, and the entries would not be records.
bool traces_into_stack(const char *trace_path, bool exists) noexcept {
  const char *stack = getenv(kVoskStack);
  if (stack == nullptr) return false;
  if (std::strcmp(stack, trace_path) == 0) return true;
  return exists ? same_file(trace_path, stack) : could_become_same_file(trace_path, stack);
}

// How a push traces: on, off, or off although VOSKDEBUG asks for it.
struct push_tracing {
  int on = 0;
  bool refused = false;
  char path[kPathSize];

  push_tracing() noexcept {
    path[0] = '\0';
    const int state = vk_is_debug_file_set(path);
    if (state != 1 && state != 2) return;
    refused = traces_into_stack(path, state == 1);
    if (!refused) on = state == 1 || vk_create_debug_file(path) == VOSK_SUCCESS ? 1 : 0;
  }
};

void trace_parameters(const tracer &trace, const incident &in) noexcept {
  VK_TRACE(trace,
           "Called with these params:\nfid=0x%x, assoc_fid=%s\nResource %s\nFile info: %s, %s, %s, %d\n"
           "Detail Data ptr 0x%x, Detail File %s\nMsg Info: %s, %d, %d\nDef Msg: %s\n",
           low32_of_address(in.fid), or_none(in.assoc_fid), or_none(in.resource_name), or_none(in.product_name),
           or_none(in.source_file), or_none(in.source_version), in.line, low32_of_address(in.detail_data),
           or_none(in.detail_file), or_none(in.catalogue_name), in.message_set, in.message_number,
           or_none(in.default_message));
}

incident_flags missing_fields(const incident &in) noexcept {
  incident_flags flags;
  const bool data = is_set(in.detail_data), file = is_set(in.detail_file);
  flags[VK_FLAG_NO_DEFAULT_MSG] = !is_set(in.default_message);
  flags[VK_FLAG_NO_CATALOGUE] = !is_set(in.catalogue_name);
  flags[VK_FLAG_BAD_SET] = in.message_set < 0;
  flags[VK_FLAG_BAD_MSG_NUMBER] = in.message_number < 0;
  flags[VK_FLAG_NO_RESOURCE] = !is_set(in.resource_name);
  flags[VK_FLAG_NO_FILE_NAME] = !is_set(in.source_file);
  flags[VK_FLAG_NO_VERSION] = !is_set(in.source_version);
  flags[VK_FLAG_NO_PRODUCT] = !is_set(in.product_name);
  flags[VK_FLAG_BAD_LINE] = in.line < 1;
  flags[VK_FLAG_NO_DETAIL] = !data && !file;
  flags[VK_FLAG_BOTH_DETAILS] = data && file;
  return flags;
}

// How far an attempt has come; unfinished is a stack file that another process is just creating, gone one that it has
// taken away again.
enum class progress { ready, recorded, failed, unfinished, gone };

// One push. What is made once, however often the file has to be opened: the trace, the flags and the detail copy.
class pusher {
 public:
  pusher(int pid, const incident &in, int trace_on, const char *trace_path) noexcept
      : trace_on_(trace_on),
        trace_path_(trace_path),
        trace_(trace_on, trace_path, "vk_push_stack"),
        pid_(pid),
        in_(in),
        flags_(missing_fields(in)) {
    copy_path_[0] = '\0';
    stack_path_[0] = '\0';
  }

  int run(va_list args) noexcept {
    creation_wait wait;
    for (;;) {
      va_list attempt_args;
      va_copy(attempt_args, args);
      const progress made = attempt(attempt_args, wait);
      va_end(attempt_args);
      if (made == progress::failed) return code_;
      if (made == progress::recorded) break;
    }
    hand_out_identifier();
    return raise_attentions(in_, flags_);
  }

 private:
  template <typename... Inserts>
  [[gnu::cold]] progress leave_and_fail(int fd, int code, int message, Inserts... inserts) noexcept {
    leave_stack(fd);
    code_ = report(code, message, inserts...);
    return progress::failed;
  }

  progress attempt(va_list args, creation_wait &wait) noexcept;
  bool find_and_open(int &fd) noexcept;
  bool copy_details(int fd) noexcept;
  void build_record(va_list args) noexcept;
  progress write_when_finished(int fd, creation_wait &wait) noexcept;
  progress write_record(int fd, bool may_wait) noexcept;
  progress write_by_whole_records(int fd, bool may_wait) noexcept;
  progress write_record(int fd, bool may_wait, stack_image *image) noexcept;
  progress make_room(int fd, bool may_wait, stack_image *image, stack_header &header) noexcept;
  progress put_record(int fd, stack_file::control &control) noexcept;
  progress put_control(int fd, const stack_file::control &control) noexcept;
  progress leave_bad_stack(int fd, int result, const char *routine) noexcept;
  void hand_out_identifier() noexcept;
  int report_lookup(int result) const noexcept;
  int trace_failed_seek(int position) const noexcept;
  int trace_failed_write(std::size_t size, ssize_t written, int code) const noexcept;

  const int trace_on_;
  const char *const trace_path_;
  const tracer trace_;
  const int pid_;
  const incident &in_;
  incident_flags flags_;
  int code_ = 0;
  int owner_ = 0, originator_ = 0, parent_ = 0;
  const char *process_name_ = nullptr;
  std::uint32_t thread_ = 0;
  bool details_copied_ = false;
  std::uint32_t length_ = 0;
  vk_eid_t eid_;
  unsigned char record_[stack_file::kRecordMax];
  char stack_path_[kStackPathSize];
  char copy_path_[kPathSize];
};

int pusher::report_lookup(int result) const noexcept {
  switch (result) {
    case VOSK_INV_ENV:
      return report(VK_ENV_CORRUPT, 25);
    case VOSK_FILE_ACCESS:
      return report(VK_STACK_ACCESS, 33, stack_path_);
    case VOSK_IS_DIR:
      return report(kIsDirectory, 34, stack_path_, kStackDirectory);
    case VOSK_DIR_MISSING:
    case VOSK_DIR_ACCESS:
      return report(kDirectoryFailed, 29, kStackDirectory);
    case VOSK_INV_PARAM3:
      return report(VK_UNEXPECTED, 30, "vk_push_stack_1");
    default:
      return report(VK_UNEXPECTED, 30, "vk_get_env_info");
  }
}

// Finds the stack by the environment, creates it where it is missing, and opens and locks it. False when it failed,
// with the result in code_.
bool pusher::find_and_open(int &fd) noexcept {
  const int result = vk_get_env_info(trace_on_, trace_path_, stack_path_, &owner_, &originator_);
  if (result != VOSK_SUCCESS && result != VOSK_FILE_MISSING) {
    code_ = report_lookup(result);
    return false;
  }
  const open_result opened = result == VOSK_SUCCESS ? open_stack(trace_, stack_path_)
                                                    : create_stack(trace_on_, trace_path_, trace_, stack_path_);
  fd = opened.fd;
  code_ = opened.code;
  return fd != -1;
}

// Copies the detail file, once. False when the lock got lost over it and could not be taken again.
bool pusher::copy_details(int fd) noexcept {
  if (details_copied_ || !is_set(in_.detail_file) || flags_[VK_FLAG_BOTH_DETAILS]) return true;
  details_copied_ = true;
  const bool drops_lock = same_file(in_.detail_file, stack_path_);
  if (vk_make_dump_file_copy(trace_on_, trace_path_, in_.detail_file, copy_path_) != VOSK_SUCCESS) {
    VK_TRACE(trace_, "%s", "Cannot copy caller's file - ignoring\n");
    flags_[VK_FLAG_COPY_FAILED] = true;
  }
  return !drops_lock || lock_again(trace_, stack_path_, fd, code_);
}

void pusher::build_record(va_list args) noexcept {
  cu_arg_t *arguments = nullptr;
  int count = 0;
  if (cu_set_error_args_1(in_.default_message, args, &arguments, &count) != 0) {
    VK_TRACE(trace_, "cu_set_error_args detected %d arguments for the default messsage \"%s\"\n", count,
             printable(in_.default_message));
    arguments = nullptr;
    count = 0;
  }
  constexpr std::uint32_t kNone = 0xFFFFFFFF;
  std::int64_t seconds = 0;
  std::memset(eid_, 0, sizeof eid_);
  flags_[VK_FLAG_NO_EID] = vk_generate_eid_2(static_cast<unsigned int>(trace_on_), trace_path_, stack_path_, 0, kNone,
                                             kNone, &seconds, eid_) != VOSK_SUCCESS;

  const bool cites_copy = is_set(in_.detail_file) && !flags_[VK_FLAG_BOTH_DETAILS];
  if (cites_copy)
    VK_TRACE(trace_, "Calling %s using detail file name as detail data\n", "vk_format_stack_rec");
  else
    VK_TRACE(trace_, "Calling %s using normal detail data\n", "vk_format_stack_rec");
  const record_context context = {
      eid_,  static_cast<std::uint32_t>(seconds),      process_name_, pid_, parent_, thread_, arguments,
      count, cites_copy ? copy_path_ : in_.detail_data};
  flags_[VK_FLAG_OVER_LENGTH] = vk_format_stack_rec(in_, flags_, context, record_, &length_) != VOSK_SUCCESS;
  (void)cu_rel_error_args_1(arguments, count);
}

int pusher::trace_failed_seek(int position) const noexcept {
  const int err = errno;
  VK_TRACE(trace_, "Cannot lseek to position %d in stack - error code %d\nReturning %s(%d)\n", position, err,
           vk_name(VK_IO_FAILED), VK_IO_FAILED);
  return err;
}

int pusher::trace_failed_write(std::size_t size, ssize_t written, int code) const noexcept {
  const int err = errno;
  VK_TRACE(trace_,
           "Write Failure - Attempted to write %d bytes, return code %d error code %d\nReturning %s(%d) to caller\n",
           low32(size), low32(written), err, vk_name(code), code);
  return err;
}

// The record stays as it was made while its file is waited for. Where that is gone the next attempt makes another one.
progress pusher::write_when_finished(int fd, creation_wait &wait) noexcept {
  for (;;) {
    const progress made = write_record(fd, wait.may_wait());
    if (made != progress::unfinished) return made;
    unlock_stack(fd);
    wait.until_finished(stack_path_);
    if (is_removed(fd)) {
      (void)close(fd);
      return progress::gone;
    }
    if (!lock_again(trace_, stack_path_, fd, code_)) return progress::failed;
  }
}

progress pusher::write_record(int fd, bool may_wait) noexcept {
  return chosen_rule() == reclaim_rule::whole ? write_by_whole_records(fd, may_wait)
                                              : write_record(fd, may_wait, nullptr);
}

// Out of line: only this rule has the whole file on the stack.
[[gnu::noinline]] progress pusher::write_by_whole_records(int fd, bool may_wait) noexcept {
  stack_image image;
  return write_record(fd, may_wait, &image);
}

// Writes the record and then the header that leads to it. The file is open and locked; it is left, unless it is
// unfinished. Whole records make room where there is an image.
progress pusher::write_record(int fd, bool may_wait, stack_image *image) noexcept {
  stack_header header;
  progress made = make_room(fd, may_wait, image, header);
  if (made == progress::ready) made = put_record(fd, header.control);
  if (made == progress::ready) made = put_control(fd, header.control);
  return made;
}

progress pusher::leave_bad_stack(int fd, int result, const char *routine) noexcept {
  if (result == VOSK_FILE_CORRUPT) return leave_and_fail(fd, kControlFailed, 41, stack_path_, routine);
  return leave_and_fail(fd, VK_UNEXPECTED, 30, routine);
}

progress pusher::make_room(int fd, bool may_wait, stack_image *image, stack_header &header) noexcept {
  const reclaim_rule rule = image != nullptr ? reclaim_rule::whole : reclaim_rule::standard;
  int result = vk_get_stack_ctrl_info(trace_on_, trace_path_, fd, &header, may_wait, rule, image);
  if (result == kStackUnfinished) return progress::unfinished;  // still open and locked
  if (result != VOSK_SUCCESS && result != VOSK_UNSUPPORTED)
    return leave_bad_stack(fd, result, "vk_get_stack_ctrl_info");
  // The records of a foreign version are not ours to tell whole ones from leftovers.
  const bool by_whole_records = image != nullptr && header.version == stack_file::kVersion1;
  result = by_whole_records ? clear_whole_records(trace_on_, trace_path_, fd, &header, image, length_)
                            : vk_clear_records(trace_on_, trace_path_, fd, &header, length_);
  return result == VOSK_SUCCESS ? progress::ready : leave_bad_stack(fd, result, "vk_clear_records");
}

progress pusher::put_record(int fd, stack_file::control &control) noexcept {
  std::int32_t &position = control.recording_position;
  if (lseek(fd, position, SEEK_SET) == -1) {
    const int err = trace_failed_seek(position);
    return leave_and_fail(fd, VK_IO_FAILED, 43, stack_path_, position, err);
  }
  const std::size_t size = length_ + stack_file::kPrefixSize;
  errno = 0;
  const ssize_t written = write(fd, record_, size);
  if (written != static_cast<ssize_t>(size)) {
    const int err = trace_failed_write(size, written, VK_IO_FAILED);
    return leave_and_fail(fd, VK_IO_FAILED, 42, stack_path_, err);
  }
  VK_TRACE(trace_, "Incident information recorded - Size %d bytes, offset %d bytes\n", low32(size), position);
  position = low32(std::int64_t{position} + static_cast<std::int64_t>(size));
  return progress::ready;
}

progress pusher::put_control(int fd, const stack_file::control &control) noexcept {
  if (lseek(fd, stack_file::kControlAt, SEEK_SET) == -1) {
    // 24 is shown, although the seek was to 4; that is meant.
    const int err = trace_failed_seek(stack_file::kHeaderSize);
    return leave_and_fail(fd, VK_IO_FAILED, 43, stack_path_, stack_file::kHeaderSize, err);
  }
  errno = 0;
  const ssize_t written = write(fd, &control, sizeof control);
  if (written != static_cast<ssize_t>(sizeof control)) {
    const int err = trace_failed_write(sizeof control, written, kControlFailed);
    return leave_and_fail(fd, kControlFailed, 39, stack_path_, err);
  }
  leave_stack(fd);
  return progress::recorded;
}

progress pusher::attempt(va_list args, creation_wait &wait) noexcept {
  int fd = -1;
  if (!find_and_open(fd)) return progress::failed;
  if (pid_ != owner_) {
    VK_TRACE(trace_, "Process ID %d does not agree with %s value of %d\nReturning error code %s(%d)\n", pid_, kVoskPid,
             owner_, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
    return leave_and_fail(fd, VK_ENV_CORRUPT, 25);
  }
  process_name_ = getenv(kVoskPname);
  thread_ = static_cast<std::uint32_t>(pthread_self());
  parent_ = originator_ == owner_ ? 0 : getppid();
  if (!copy_details(fd)) return progress::failed;
  build_record(args);
  return write_when_finished(fd, wait);
}

void pusher::hand_out_identifier() noexcept {
  if (eid_[0] == '\0') {
    VK_TRACE(trace_, "%s", "Unable to calculate an VOSK ID - clearing the data at the caller's location\n");
    if (in_.fid != nullptr) std::memset(*in_.fid, 0, sizeof *in_.fid);
  } else if (in_.fid == nullptr) {
    VK_TRACE(trace_, "%s", "Caller did not provide a valid VOSK ID pointer - cannot return VOSK ID\n");
    flags_[VK_FLAG_NO_EID_POINTER] = true;
  } else {
    std::memcpy(*in_.fid, eid_, sizeof eid_);
  }
}

}  // namespace

int push(int pid, const incident &in, va_list args) noexcept {
  const file_size_guard guard(kFixedFileReach);  // the copying of a detail file has its own
  const push_tracing tracing;
  trace_parameters(tracer(tracing.on, tracing.path, "vk_push_stack"), in);
  // The test decides on its own whether it traces, unless this push must not.
  const int result = tracing.refused ? test_environment(0, nullptr, pid) : vk_test_stack_main_1(pid);
  if (result != VK_SUCCESS) return result;
  return pusher(pid, in, tracing.on, tracing.path).run(args);
}

}  // namespace vk
