#include "lib/vk_push_stack/record_check.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "lib/vk_push_stack/stack_file.h"
#include "qx_cu.h"
#include "qx_vosk.h"
#include "utils/vk_eid/fields.h"

namespace vk {
namespace {

constexpr char kStackHeaderDigit = '7';  // version 2, stack
constexpr std::size_t kBodyMax = stack_file::kRecordMax - stack_file::kPrefixSize;
// A record of this size and less has all its fields: one that does not fit is at most eight bytes wide.
constexpr std::size_t kSurelyComplete = kBodyMax - 8;
// The standard rule may leave the earliest offset up to this many bytes in front of the newest record's end; what it
// clears next begins there.
constexpr std::size_t kClearedEnd = 3;

// Takes fields off a body, remembering whether all were there.
class body_reader {
 public:
  explicit body_reader(std::span<const unsigned char> body) noexcept : body_(body) {}
  std::uint32_t u32() noexcept {
    std::uint32_t value = 0;
    if (const unsigned char *at = skip(sizeof value); at != nullptr) std::memcpy(&value, at, sizeof value);
    return value;
  }
  const unsigned char *skip(std::size_t size) noexcept {
    if (size > body_.size() - at_) {
      complete_ = false;
      at_ = body_.size();
      return nullptr;
    }
    const unsigned char *field = body_.data() + at_;
    at_ += size;
    return field;
  }
  // Returns the text's length.
  std::size_t text() noexcept {
    const std::size_t from = at_;
    const unsigned char *start = body_.data() + at_;
    const void *end = at_ < body_.size() ? std::memchr(start, 0, body_.size() - at_) : nullptr;
    if (end == nullptr) {
      complete_ = false;
      at_ = body_.size();
    } else {
      at_ += static_cast<std::size_t>(static_cast<const unsigned char *>(end) - start) + 1;
    }
    return at_ - from - (complete_ ? 1 : 0);
  }
  // A text that has a substitute is never empty, unless it was cut away.
  void name() noexcept {
    if (text() == 0 && complete_) plausible_ = false;
  }
  bool complete() const noexcept { return complete_; }
  bool plausible() const noexcept { return plausible_; }
  std::span<const unsigned char> rest() const noexcept { return body_.subspan(at_); }

 private:
  std::span<const unsigned char> body_;
  std::size_t at_ = 0;
  bool complete_ = true, plausible_ = true;
};

bool ends_here(std::span<const unsigned char> rest) noexcept {
  return rest.size() <= kClearedEnd && std::all_of(rest.begin(), rest.end(), [](unsigned char b) { return b == 0; });
}

// An identifier and the time beside it: both missing, or of the same second.
bool agree(const unsigned char *eid, std::uint32_t seconds) noexcept {
  constexpr unsigned char kNone[VK_EID_SIZE] = {};
  if (std::memcmp(eid, kNone, sizeof kNone) == 0) return seconds == 0;
  if (eid[0] != kStackHeaderDigit || eid[kEidDigits] != '\0') return false;
  if (std::memchr(eid, 0, kEidDigits) != nullptr) return false;
  char digits[kSecondsDigits + 1] = {};
  std::memcpy(digits, eid + kTimeAt, kSecondsDigits);
  return static_cast<std::uint32_t>(vk_a64l(digits)) == seconds;
}

}  // namespace

std::size_t whole_record_size(std::span<const unsigned char> bytes) noexcept {
  std::uint32_t prefix[2];
  if (bytes.size() < sizeof prefix) return 0;
  std::memcpy(prefix, bytes.data(), sizeof prefix);
  const std::size_t length = prefix[0];
  if (length == 0 || length > kBodyMax || prefix[1] != 0 || length > bytes.size() - sizeof prefix) return 0;

  body_reader body(bytes.subspan(sizeof prefix, length));
  if (body.u32() != 0) return 0;
  const unsigned char *eid = body.skip(VK_EID_SIZE);
  (void)body.skip(VK_EID_SIZE);  // the associated identifier is whatever the caller gave
  const std::uint32_t seconds = body.u32();
  if (!body.complete() || !agree(eid, seconds)) return 0;
  (void)body.text();    // process name
  (void)body.skip(12);  // process, parent, thread
  body.name();          // source file
  body.name();          // version
  body.name();          // product
  (void)body.skip(4);   // line
  (void)body.text();    // catalogue
  (void)body.skip(8);   // set and number
  (void)body.text();    // default message
  const std::uint32_t arguments = body.u32();
  for (std::uint32_t i = 0; i < arguments && body.complete(); ++i) {
    if (body.u32() == CU_ARG_STRING)
      (void)body.text();
    else
      (void)body.skip(sizeof(cu_arg_t::value));
  }
  (void)body.text();  // details
  const bool whole = body.complete() ? ends_here(body.rest()) : length > kSurelyComplete;
  return whole && body.plausible() ? length + sizeof prefix : 0;
}

}  // namespace vk
