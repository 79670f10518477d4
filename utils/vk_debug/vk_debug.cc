// Appending an entry to the trace file.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string_view>

#include "qx_vosk.h"
#include "utils/errno_map.h"
#include "utils/file_size_guard.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_debug/trace_entry.h"
#include "utils/vk_debug/trace_file.h"
#include "utils/vk_utils/clear_bytes.h"

namespace vk {
namespace {

constexpr std::string_view kEndMarker = "[END OF FINAL ENTRY]\n";
// The recycle marker is written with its zero byte, unlike the end marker.
constexpr char kRecycleMarker[] = "[FILE RECYCLES HERE]\n";
constexpr std::int64_t kMargin = 23;
constexpr std::size_t kFieldWidth = 5, kClearWindow = 1024;
constexpr char kStartOfEntry = '\001';

constexpr errno_code kOpenTrace[] = {
    {ENOENT, VOSK_FILE_MISSING}, {EACCES, VOSK_FILE_ACCESS}, {ENOTDIR, VOSK_DIR_MISSING}, {ENFILE, VOSK_NO_RESOURCE},
    {EMFILE, VOSK_NO_RESOURCE},  {EROFS, VOSK_PERM_DENIED},  {ELOOP, VOSK_LINK_LOOP}};

bool find_field(const char *header, const char *key, int &value) noexcept {
  const char *at = std::strstr(header, key);
  if (at == nullptr) return false;
  char digits[kFieldWidth + 1] = {};
  (void)std::strncpy(digits, at + std::strlen(key), kFieldWidth);
  value = decimal(digits);
  return true;
}

bool read_header(int fd, trace_header &header) noexcept {
  char text[kTraceHeaderSize + 1] = {};
  if (read(fd, text, kTraceHeaderSize) != static_cast<ssize_t>(kTraceHeaderSize)) return false;
  return find_field(text, kOffsetKey, header.next_offset) && find_field(text, kWrapKey, header.wraps) &&
         find_field(text, kSizeKey, header.file_size);
}

bool write_header(int fd, const trace_header &header) noexcept {
  char text[kTraceHeaderTextSize];
  const std::size_t length = format_trace_header(text, header);
  if (lseek(fd, 0, SEEK_SET) == -1) return false;
  return write(fd, text, kTraceHeaderSize) == static_cast<ssize_t>(length);
}

bool write_once(int fd, std::string_view text) noexcept {
  return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Marks the end of the older entries, clears the rest of the file and starts again behind the header.
bool recycle(int fd, trace_header &header) noexcept {
  if (lseek(fd, header.next_offset, SEEK_SET) == -1) return false;
  (void)write(fd, kRecycleMarker, sizeof kRecycleMarker);
  if (clear_bytes(fd, std::int64_t{header.file_size} - header.next_offset - kMargin) == -1) return false;
  header.next_offset = static_cast<int>(kTraceHeaderSize);
  ++header.wraps;  // at most five digits were read
  return true;
}

// Clears what is left, behind the newest entry, of the oldest one that it cut into.
int clear_remains(int fd) noexcept {
  const off_t here = lseek(fd, 0, SEEK_CUR);
  if (here == -1) return VOSK_FAILURE;
  char window[kClearWindow];
  const ssize_t count = read(fd, window, sizeof window);
  if (count == -1) return VOSK_FILE_CORRUPT;
  const std::size_t scanned = strnlen(window, static_cast<std::size_t>(count));
  const void *mark = std::memchr(window, kStartOfEntry, scanned);
  if (mark == nullptr) return VOSK_SUCCESS;
  if (lseek(fd, here, SEEK_SET) == -1) return VOSK_FAILURE;
  return clear_bytes(fd, static_cast<const char *>(mark) - window) == -1 ? VOSK_FILE_CORRUPT : VOSK_SUCCESS;
}

// `fd` is locked and stands at offset 0. The header is rewritten last, so that a failure on the way leaves the former
// end of the entries in force.
int write_entry(int fd, std::string_view entry) noexcept {
  trace_header header;
  if (!read_header(fd, header)) return VOSK_FILE_CORRUPT;
  // An entry is only written where at least 24 bytes remain behind it; the equality is meant.
  if (header.file_size <= header.next_offset + static_cast<std::int64_t>(entry.size()) + kMargin &&
      !recycle(fd, header))
    return VOSK_FILE_CORRUPT;
  if (lseek(fd, header.next_offset, SEEK_SET) == -1) return VOSK_FILE_CORRUPT;
  if (!write_once(fd, entry)) return VOSK_FILE_CORRUPT;
  const off_t behind = lseek(fd, 0, SEEK_CUR);
  if (behind == -1) return VOSK_FILE_CORRUPT;
  header.next_offset = static_cast<int>(behind);
  if (!write_once(fd, kEndMarker)) return VOSK_FILE_CORRUPT;
  if (header.wraps != 0) {
    const int result = clear_remains(fd);
    if (result != VOSK_SUCCESS) return result;
  }
  if (!write_header(fd, header)) return VOSK_FILE_CORRUPT;
  (void)lseek(fd, 0, SEEK_SET);
  return VOSK_SUCCESS;
}

int open_trace(const char *path) noexcept {
  int fd;
  do fd = open(path, O_RDWR);
  while (fd == -1 && errno == EINTR);
  return fd;
}

}  // namespace

int vdebug(const char *trace_path, const char *routine, const char *format, va_list args) noexcept {
  if (trace_path == nullptr) return VOSK_INV_PARAM1;
  if (routine == nullptr) return VOSK_INV_PARAM2;
  if (format == nullptr) return VOSK_INV_PARAM3;
  char entry[kEntrySize];
  const std::size_t length = format_trace_entry(entry, routine, format, args);

  const file_size_guard guard(kFixedFileReach);
  const int fd = open_trace(trace_path);
  if (fd == -1) return code_for(kOpenTrace, errno);
  // The lock counts from here. A FIFO or a terminal, where the read would wait for ever, has no position.
  if (lseek(fd, 0, SEEK_SET) == -1) {
    (void)close(fd);
    return VOSK_FILE_CORRUPT;
  }
  if (lockf(fd, F_LOCK, 0) != 0) {
    (void)close(fd);
    return VOSK_LOCK_FAILED;
  }
  const int result = write_entry(fd, {entry, length});
  const bool unlocked = lockf(fd, F_ULOCK, 0) == 0;
  (void)close(fd);
  if (!unlocked) return VOSK_UNLOCK_FAILED;
  return result == VOSK_SUCCESS || result == VOSK_FILE_CORRUPT ? result : VOSK_FAILURE;
}

}  // namespace vk

int vk_debug(const char *trace_path, const char *routine, const char *format, ...) {
  va_list args;
  va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the caller's format, with the caller's arguments
  const int result = vk::vdebug(trace_path, routine, format, args);
#pragma GCC diagnostic pop
  va_end(args);
  return result;
}
