#include "lib/vk_push_stack/record_check.h"

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
static_assert(kBodyMin == 4 + 2 * VK_EID_SIZE + 4 + 1 + 12 + 3 * 2 + 4 + 1 + 8 + 1 + 4 + 1);
// A record of this size and less has all its fields: one that does not fit is at most eight bytes wide.
constexpr std::size_t kSurelyComplete = kBodyMax - 8;

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
      return nullptr;
    }
    const unsigned char *field = body_.data() + at_;
    at_ += size;
    return field;
  }
  // Returns the text's length; nobody looks at what is read once a field was missing.
  std::size_t text() noexcept {
    const unsigned char *start = body_.data() + at_;
    const void *end = std::memchr(start, 0, body_.size() - at_);
    if (end == nullptr) {
      complete_ = false;
      return 0;
    }
    const auto length = static_cast<std::size_t>(static_cast<const unsigned char *>(end) - start);
    at_ += length + 1;
    return length;
  }
  // A text that has a substitute is never empty, unless it was cut away.
  void name() noexcept {
    if (text() == 0 && complete_) plausible_ = false;
  }
  bool complete() const noexcept { return complete_; }
  bool plausible() const noexcept { return plausible_; }
  bool at_end() const noexcept { return at_ == body_.size(); }

 private:
  std::span<const unsigned char> body_;
  std::size_t at_ = 0;
  bool complete_ = true, plausible_ = true;
};

enum class identity { contradiction, none, agreeing };

// Of an identifier and the time beside it: both missing, or of the same second.
identity identity_of(const unsigned char *eid, std::uint32_t seconds) noexcept {
  constexpr unsigned char kNone[VK_EID_SIZE] = {};
  if (std::memcmp(eid, kNone, sizeof kNone) == 0) return seconds == 0 ? identity::none : identity::contradiction;
  if (eid[0] != kStackHeaderDigit || eid[kEidDigits] != '\0') return identity::contradiction;
  if (std::memchr(eid, 0, kEidDigits) != nullptr) return identity::contradiction;
  // The digits behind the seconds have higher bits.
  const auto *const digits = reinterpret_cast<const char *>(eid + kTimeAt);
  return static_cast<std::uint32_t>(vk_a64l(digits)) == seconds ? identity::agreeing : identity::contradiction;
}

void take_names(body_reader &body) noexcept {
  (void)body.text();    // process name
  (void)body.skip(12);  // process, parent, thread
  body.name();          // source file
  body.name();          // version
  body.name();          // product
}

void take_description(body_reader &body) noexcept {
  (void)body.skip(4);  // line
  (void)body.text();   // catalogue
  (void)body.skip(8);  // set and number
  (void)body.text();   // default message
  const std::uint32_t arguments = body.u32();
  for (std::uint32_t i = 0; i < arguments && body.complete(); ++i) {
    if (body.u32() == CU_ARG_STRING)
      (void)body.text();
    else
      (void)body.skip(sizeof(cu_arg_t::value));
  }
  (void)body.text();  // details
}

}  // namespace

checked_record check_record(std::span<const unsigned char> bytes) noexcept {
  constexpr checked_record kNoRecord = {0, false};
  std::uint32_t prefix[2];
  if (bytes.size() < sizeof prefix + kBodyMin) return kNoRecord;
  std::memcpy(prefix, bytes.data(), sizeof prefix);
  const std::size_t length = prefix[0];
  if (length < kBodyMin || length > kBodyMax || prefix[1] != 0 || length > bytes.size() - sizeof prefix)
    return kNoRecord;

  body_reader body(bytes.subspan(sizeof prefix, length));
  if (body.u32() != 0) return kNoRecord;
  const unsigned char *eid = body.skip(VK_EID_SIZE);
  (void)body.skip(VK_EID_SIZE);  // the associated identifier is whatever the caller gave
  const identity found = identity_of(eid, body.u32());
  if (found == identity::contradiction) return kNoRecord;
  take_names(body);
  const bool named = body.complete() && body.plausible();
  take_description(body);
  const bool ends = body.complete() ? body.at_end() : length > kSurelyComplete;
  const bool intact = ends && body.plausible();
  return found == identity::agreeing || named || intact ? checked_record{length + sizeof prefix, intact} : kNoRecord;
}

}  // namespace vk
