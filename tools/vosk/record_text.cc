#include "record_text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

#include "field_text.h"
#include "include/qx_cu.h"
#include "reader/moment.h"

namespace vosk {

namespace {

std::string_view or_empty(const std::optional<std::string_view> &text) {
  return text.value_or(std::string_view());
}

std::string_view bits_of(const std::uint64_t &value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string real_text(std::uint64_t bits) {
  double value;
  std::memcpy(&value, &bits, sizeof value);
  if (!std::isfinite(value)) return std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
  std::array<char, 40> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

const char *type_name(std::uint32_t type) {
  switch (type) {
    case CU_ARG_INT:
      return "int";
    case CU_ARG_UINT:
      return "unsigned int";
    case CU_ARG_LONG:
      return "long";
    case CU_ARG_ULONG:
      return "unsigned long";
    case CU_ARG_STRING:
      return "string";
    case CU_ARG_DOUBLE:
      return "double";
    case CU_ARG_POINTER:
      return "pointer";
    case CU_ARG_CHAR:
      return "char";
    default:
      return "unknown type";
  }
}

// The value of an argument that is no string, as a number where it is one.
std::string value_text(const argument &arg) {
  if (!arg.bits) return "not stored";
  switch (arg.type) {
    case CU_ARG_INT:
    case CU_ARG_LONG:
    case CU_ARG_CHAR:
      return std::to_string(static_cast<std::int64_t>(*arg.bits));
    case CU_ARG_UINT:
    case CU_ARG_ULONG:
      return std::to_string(*arg.bits);
    case CU_ARG_DOUBLE:
      return real_text(*arg.bits);
    default:
      return hex_text(*arg.bits);
  }
}

std::string argument_text(const output &out, const argument &arg) {
  const std::string value = arg.text ? '"' + out.safe(*arg.text) + '"' : value_text(arg);
  return std::string(type_name(arg.type)) + " " + value;
}

void argument_json(const argument &arg, std::string &text) {
  json_object object(text);
  object.number("type", arg.type);
  if (arg.text) object.text("text", *arg.text);
  if (arg.bits) {
    object.hex("bits", bits_of(*arg.bits));
    if (arg.type == CU_ARG_INT || arg.type == CU_ARG_LONG || arg.type == CU_ARG_CHAR || arg.type == CU_ARG_UINT ||
        arg.type == CU_ARG_ULONG)
      object.literal("value", value_text(arg));
  }
  object.close();
}

// An identifier field: null when it is empty, a string when it is 42 characters and a zero byte, else its 43 bytes.
void identifier_member(json_object &object, std::string_view name, std::string_view field) {
  const std::string_view text = identifier_text(field);
  if (field.find_first_not_of('\0') == std::string_view::npos)
    object.null(name);
  else if (text.size() == kIdentifierLength)
    object.text(name, text);
  else
    object.object(name, [&](json_object &inner) { inner.hex("hex", field); });
}

void text_member(json_object &object, std::string_view name, const std::optional<std::string_view> &value) {
  if (value) object.text(name, *value);
}

void number_member(json_object &object, std::string_view name, const std::optional<std::uint32_t> &value) {
  if (value) object.number(name, *value);
}

std::string first_line(const std::string &text) {
  return text.substr(0, text.find('\n'));
}

std::string state_text(const record &r) {
  if (!r.intact) return ", damaged: its fields do not end at its length";
  return r.cut ? ", cut to the record size" : "";
}

}  // namespace

std::string time_of(const common_options &common, const record &r) {
  if (!r.id) return "(no time)";
  return time_text(r.id->seconds, r.id->microseconds, common.utc ? zone::utc : zone::local);
}

std::string process_text(const output &out, const record &r) {
  return or_dash(out.safe(or_empty(r.process))) + "[" + number_text(r.pid) + "]";
}

std::string source_text(const output &out, const record &r) {
  return or_dash(out.safe(or_empty(r.source))) + ":" + number_text(r.line);
}

std::string short_line(const output &out, const common_options &common, const record &r, const std::string &description,
                       bool with_node) {
  std::string node;
  if (with_node && r.id && r.id->address) node = " on " + r.id->address->text();
  std::string line = out.painted(style::time, time_of(common, r)) + " " +
                     out.painted(style::process, process_text(out, r)) + node + " " +
                     or_dash(out.safe(or_empty(r.product))) + " " + source_text(out, r) + " " +
                     or_dash(out.safe(first_line(description)));
  if (!r.intact)
    line += out.painted(style::damage, " [damaged]");
  else if (r.cut)
    line += " [cut]";
  return line + " " + out.painted(style::identifier, or_dash(out.safe(identifier_text(r.eid)))) + "\n";
}

std::string verbose_block(const output &out, const common_options &common, const placed_record &placed,
                          const std::string &description) {
  const record &r = *placed.what;
  std::string block;
  block += out.painted(style::note, "Record at offset " + std::to_string(r.offset) + " of " + out.safe(*placed.path) +
                                        ", " + std::to_string(r.size) + " bytes" + state_text(r)) +
           "\n";
  add_field(block, "Identifier", out.painted(style::identifier, or_dash(out.safe(identifier_text(r.eid)))));
  add_field(block, "Follows from", or_dash(out.safe(identifier_text(r.associated))));
  add_field(block, "Time", time_of(common, r));
  if (r.id) add_field(block, "Node", r.id->address ? r.id->address->text() : "not told by the identifier");
  add_field(block, "Process",
            process_text(out, r) + ", parent " + number_text(r.parent) + ", thread " + number_text(r.thread));
  add_field(block, "Product", or_dash(out.safe(or_empty(r.product))));
  add_field(block, "Source", source_text(out, r) + ", version " + or_dash(out.safe(or_empty(r.version))));
  add_field(
      block, "Message",
      or_dash(out.safe(or_empty(r.catalogue))) + ", set " + number_text(r.set) + ", number " + number_text(r.number));
  add_field(block, "Description", or_dash(out.safe_lines(description)));
  if (or_empty(r.default_text) != description)
    add_field(block, "Default text", out.safe_lines(or_empty(r.default_text)));
  for (std::size_t i = 0; i < r.arguments.size(); ++i)
    add_field(block, "Argument " + std::to_string(i + 1), argument_text(out, r.arguments[i]));
  if (r.argument_count && *r.argument_count != r.arguments.size())
    add_field(block, "Arguments", std::to_string(*r.argument_count) + " were given");
  add_field(block, "Detail", or_dash(out.safe_lines(or_empty(r.detail))));
  return block;
}

void record_members(json_object &object, const placed_record &placed, const std::string &description) {
  const record &r = *placed.what;
  object.text("file", *placed.path).number("offset", r.offset).number("length", r.length);
  object.boolean("intact", r.intact).boolean("cut", r.cut);
  identifier_member(object, "identifier", r.eid);
  identifier_member(object, "associated", r.associated);
  if (r.id) {
    object.text("time", utc_time_text(r.id->seconds, r.id->microseconds)).number("seconds", r.id->seconds);
    number_member(object, "microseconds", r.id->microseconds);
    if (r.id->address) object.text("node", r.id->address->text());
  }
  object.number("stored_time", r.time);
  text_member(object, "process", r.process);
  number_member(object, "pid", r.pid);
  number_member(object, "parent", r.parent);
  number_member(object, "thread", r.thread);
  text_member(object, "source", r.source);
  text_member(object, "version", r.version);
  text_member(object, "product", r.product);
  number_member(object, "line", r.line);
  text_member(object, "catalogue", r.catalogue);
  number_member(object, "set", r.set);
  number_member(object, "number", r.number);
  text_member(object, "default_text", r.default_text);
  number_member(object, "argument_count", r.argument_count);
  object.array("arguments", r.arguments, argument_json);
  text_member(object, "detail", r.detail);
  if (!r.rest.empty()) object.hex("rest", r.rest);
  object.text("description", description);
}

}  // namespace vosk
