#include "lib/vk_push_stack/record.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "utils/text.h"

namespace vk {
namespace {

constexpr std::size_t kArgumentText = 64;
constexpr char kNoIdentifier[VK_EID_SIZE] = {};

// Appends fields within the record's bound. A fixed field that does not fit is skipped, and those behind it are tried;
// a text that does not fit is cut and ends the record.
class record_writer {
 public:
  explicit record_writer(unsigned char (&buffer)[stack_file::kRecordMax]) noexcept : buffer_(buffer) {
    std::memset(buffer_, 0, stack_file::kPrefixSize);
  }

  void put_fixed(const void *field, std::size_t size) noexcept {
    if (size > room()) return;  // as behind a text that was cut
    std::memcpy(buffer_ + position_, field, size);
    position_ += size;
  }
  template <typename Integer>
  void put_u32(Integer value) noexcept {
    const auto field = static_cast<std::uint32_t>(value);
    put_fixed(&field, sizeof field);
  }
  // A zero byte follows a text; one that ends with the record has none.
  void put_text(std::string_view text) noexcept {
    if (cut_) return;
    const std::size_t n = std::min(text.size(), room());
    if (n != 0) std::memcpy(buffer_ + position_, text.data(), n);
    position_ += n;
    cut_ = n < text.size();
    if (room() != 0) buffer_[position_++] = '\0';
  }

  // Stores the length in the prefix.
  std::uint32_t finish() noexcept {
    const auto length = static_cast<std::uint32_t>(position_ - stack_file::kPrefixSize);
    std::memcpy(buffer_, &length, sizeof length);
    return length;
  }
  bool cut() const noexcept { return cut_; }

 private:
  std::size_t room() const noexcept { return stack_file::kRecordMax - position_; }

  unsigned char *buffer_;
  std::size_t position_ = stack_file::kPrefixSize;
  bool cut_ = false;
};

void put_argument(record_writer &body, const cu_arg_t &arg) noexcept {
  body.put_u32(arg.type);
  if (arg.type == CU_ARG_STRING) {
    const char *text = printable(arg.value.string);
    body.put_text({text, strnlen(text, kArgumentText)});
  } else {
    body.put_fixed(&arg.value, sizeof arg.value);
  }
}

}  // namespace

int vk_format_stack_rec(const incident &in, const incident_flags &flags, const record_context &context,
                        unsigned char (&buffer)[stack_file::kRecordMax], std::uint32_t *length) noexcept {
  record_writer body(buffer);
  body.put_u32(0);
  body.put_fixed(context.eid, VK_EID_SIZE);
  body.put_fixed(is_set(in.assoc_fid) ? in.assoc_fid : kNoIdentifier, VK_EID_SIZE);
  body.put_u32(context.seconds);
  body.put_text(printable(context.process_name));
  body.put_u32(context.pid);
  body.put_u32(context.parent);
  body.put_u32(context.thread);
  body.put_text(flags[VK_FLAG_NO_FILE_NAME] ? "unknown_file" : in.source_file);
  body.put_text(flags[VK_FLAG_NO_VERSION] ? "no_version_num" : in.source_version);
  body.put_text(flags[VK_FLAG_NO_PRODUCT] ? "qrn_product" : in.product_name);
  body.put_u32(flags[VK_FLAG_BAD_LINE] ? 0 : in.line);
  body.put_text(flags[VK_FLAG_NO_CATALOGUE] ? "" : in.catalogue_name);
  body.put_u32(flags[VK_FLAG_BAD_SET] ? 0 : in.message_set);
  body.put_u32(flags[VK_FLAG_BAD_MSG_NUMBER] ? 0 : in.message_number);
  body.put_text(flags[VK_FLAG_NO_DEFAULT_MSG] ? "" : in.default_message);
  body.put_u32(context.arg_count);
  for (std::int32_t i = 0; context.args != nullptr && i < context.arg_count; ++i) put_argument(body, context.args[i]);
  body.put_text(printable(context.detail));
  *length = body.finish();
  return body.cut() ? VOSK_STACK_STEP_FAILED : VOSK_SUCCESS;
}

}  // namespace vk
