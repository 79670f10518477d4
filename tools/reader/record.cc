#include "record.h"

#include <algorithm>

namespace vosk {

namespace {

std::string_view text_of(byte_span bytes) noexcept {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Follows the writer's rules: a number that does not fit into the 1016 bytes was skipped, a text was cut and ended the
// record. Both are told from damage by where the body ends.
class field_cursor {
 public:
  field_cursor(byte_span body, std::size_t position) noexcept : body_(body), position_(position) {}

  template <class T>
  std::optional<T> number() noexcept {
    if (stopped_ || position_ + sizeof(T) > layout::kBodyMax) return std::nullopt;
    if (position_ + sizeof(T) > body_.size()) {
      overrun_ = stopped_ = true;
      return std::nullopt;
    }
    const T value = load<T>(body_, position_);
    position_ += sizeof(T);
    return value;
  }

  std::optional<std::string_view> text() noexcept {
    if (stopped_ || position_ == layout::kBodyMax) return std::nullopt;
    const byte_span rest = body_.subspan(position_);
    const auto zero = std::find(rest.begin(), rest.end(), 0);
    const auto length = static_cast<std::size_t>(zero - rest.begin());
    if (zero == rest.end()) {
      stopped_ = true;
      if (body_.size() != layout::kBodyMax) {
        overrun_ = true;
        return std::nullopt;
      }
      cut_ = true;
      position_ = layout::kBodyMax;
    } else {
      position_ += length + 1;
    }
    return text_of(rest.first(length));
  }

  // Where a number that says what follows was skipped, the last bytes of the record cannot be told apart.
  std::string_view take_rest() noexcept {
    const byte_span rest = body_.subspan(position_);
    position_ = body_.size();
    stopped_ = true;
    return text_of(rest);
  }

  bool stopped() const noexcept { return stopped_; }
  bool cut() const noexcept { return cut_; }
  fields_result result() const noexcept {
    if (overrun_) return {fields_end::not_reached, position_};
    return {position_ == body_.size() ? fields_end::at_the_limit : fields_end::before_it, position_};
  }

 private:
  byte_span body_;
  std::size_t position_;
  bool stopped_ = false, overrun_ = false, cut_ = false;
};

void read_arguments(field_cursor &fields, record &out) {
  if (fields.stopped()) return;
  if (!out.argument_count) {
    out.rest = fields.take_rest();
    return;
  }
  // Each round takes at least the 4 bytes of a type, so a damaged count ends with the body.
  for (std::uint32_t i = 0; i < *out.argument_count; ++i) {
    const auto type = fields.number<std::uint32_t>();
    if (fields.stopped()) return;
    if (!type) {
      out.rest = fields.take_rest();
      return;
    }
    argument &arg = out.arguments.emplace_back();
    arg.type = *type;
    if (arg.type == layout::kStringArgument)
      arg.text = fields.text();
    else
      arg.bits = fields.number<std::uint64_t>();
    if (fields.stopped()) return;
  }
}

}  // namespace

fields_result read_fields(byte_span body, record &out) {
  field_cursor fields(body, layout::kFieldsAt - layout::kPrefixSize);
  out.process = fields.text();
  out.pid = fields.number<std::uint32_t>();
  out.parent = fields.number<std::uint32_t>();
  out.thread = fields.number<std::uint32_t>();
  out.source = fields.text();
  out.version = fields.text();
  out.product = fields.text();
  out.line = fields.number<std::uint32_t>();
  out.catalogue = fields.text();
  out.set = fields.number<std::uint32_t>();
  out.number = fields.number<std::uint32_t>();
  out.default_text = fields.text();
  out.argument_count = fields.number<std::uint32_t>();
  out.arguments.clear();
  out.rest = {};
  read_arguments(fields, out);
  out.detail = fields.text();
  out.cut = fields.cut();
  return fields.result();
}

void read_head(byte_span bytes, std::size_t at, record &out) {
  out.offset = at;
  out.length = load_u32(bytes, at + layout::kLengthAt);
  out.eid = text_of(bytes.subspan(at + layout::kIdentifierAt, layout::kIdentifierSize));
  out.associated = text_of(bytes.subspan(at + layout::kAssociatedAt, layout::kIdentifierSize));
  out.id = decode_identifier(out.eid.substr(0, kIdentifierLength));
  out.time = load_u32(bytes, at + layout::kTimeAt);
}

bool made_later(const record &a, const record &b) noexcept {
  if (!a.id || !b.id) return false;
  if (a.id->seconds != b.id->seconds) return a.id->seconds > b.id->seconds;
  return a.id->microseconds.value_or(0) > b.id->microseconds.value_or(0);
}

std::string_view identifier_text(std::string_view field) noexcept {
  return field.substr(0, field.find('\0'));
}

}  // namespace vosk
