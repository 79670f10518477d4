#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "qx_vosk.h"
#include "utils/text.h"

namespace vk {
namespace {

constexpr std::int32_t kLargestMessage = 946;
enum : std::uint32_t { kDecimal = 1, kString = 2 };

// Lines in the caller's buffer. A line is counted with its line feed, which the last byte of the buffer may swallow:
// that byte is always zero.
class lines {
 public:
  lines(char *buffer, std::size_t size) noexcept : at_(buffer), room_(size) {}
  bool room_left() const noexcept { return room_ > 0; }
  bool fits(std::string_view line) const noexcept { return line.size() + 1 <= room_; }
  // Appends what fits of the line.
  void append(std::string_view line) noexcept {
    const std::size_t n = std::min(line.size(), room_);
    std::memcpy(at_, line.data(), n);
    at_ += n;
    room_ -= n;
    if (room_ == 0) return;
    *at_++ = '\n';
    --room_;
  }
  void terminate() noexcept {
    if (room_ > 0) *at_ = '\0';
  }

 private:
  char *at_;
  std::size_t room_;
};

// The caller's detail data; bytes behind its end count as zero.
class detail_area {
 public:
  detail_area(const void *data, std::uint32_t length) noexcept
      : data_(static_cast<const char *>(data)), length_(data != nullptr ? length : 0) {}
  bool holds(std::int64_t offset) const noexcept { return offset >= 0 && offset < length_; }

  // The value of a field at `offset`; numbers are written to `number`.
  std::string_view value(std::int64_t offset, std::uint32_t kind, char (&number)[16]) const noexcept {
    const char *at = data_ + offset;
    const auto left = static_cast<std::size_t>(length_ - offset);
    if (kind == kString) return {at, strnlen(at, left)};
    std::int32_t word = 0;
    std::memcpy(&word, at, std::min(left, sizeof word));
    const int length = kind == kDecimal
                           ? std::snprintf(number, sizeof number, "%d", word)
                           : std::snprintf(number, sizeof number, "%08x", static_cast<std::uint32_t>(word));
    return {number, static_cast<std::size_t>(length)};
  }

 private:
  const char *data_;
  std::int64_t length_;
};

std::string_view catalogue_text(nl_catd catalogue, std::uint32_t set, std::uint32_t number,
                                const char *fallback) noexcept {
  return catgets(catalogue, static_cast<int>(set), static_cast<int>(number), printable(fallback));
}

// Labels and values in pairs; the first that does not fit, or lies outside the data, ends the text.
void append_fields(lines &text, const vk_syslog_tmpl_t &tmpl, const detail_area &area, nl_catd catalogue) noexcept {
  std::int64_t cursor = 0;
  for (std::uint32_t i = 0; i < tmpl.nfields && tmpl.fields != nullptr; ++i) {
    const vk_syslog_field_t &field = tmpl.fields[i];
    const std::string_view label = catalogue_text(catalogue, field.set, field.msgnum, field.default_label);
    if (!text.fits(label) || !area.holds(cursor)) return;
    text.append(label);
    char number[16];
    const std::string_view value = area.value(cursor, field.kind, number);
    if (!text.fits(value)) return;
    text.append(value);
    cursor += field.length;
  }
}

}  // namespace
}  // namespace vk

std::int32_t vk_mk_syslog_msg_1(const vk_syslog_tmpl_t *tmpl, const void *detail_data, std::uint32_t detail_len,
                                char *buffer, std::int32_t buffer_size, nl_catd catalogue) {
  const std::int32_t size = std::min(buffer_size, vk::kLargestMessage);
  if (size <= 0) return size;
  vk::lines text(buffer, static_cast<std::size_t>(size));
  text.append(vk::printable(tmpl->title));
  if (text.room_left()) text.append(vk::catalogue_text(catalogue, tmpl->set, tmpl->msgnum, tmpl->default_text));
  if (text.room_left()) vk::append_fields(text, *tmpl, vk::detail_area(detail_data, detail_len), catalogue);
  text.terminate();
  buffer[size - 1] = '\0';
  return size;
}
