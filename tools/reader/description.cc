#include "description.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "include/qx_cu.h"
#include "libqx_cu/message.h"
#include "utils/conversions.h"

namespace vosk {

namespace {

constexpr std::size_t kLongest = 65536;
// Records name as many catalogues as they like; most are not there.
constexpr std::size_t kMostCatalogues = 256;

const nl_catd kNone = reinterpret_cast<nl_catd>(-1);

bool holds(std::uint32_t stored, vk::arg_type wanted) {
  using vk::arg_type;
  switch (wanted) {
    case arg_type::int_type:
      return stored == CU_ARG_INT;
    case arg_type::unsigned_type:
      return stored == CU_ARG_UINT;
    case arg_type::long_type:
    case arg_type::long_long_type:
    case arg_type::intmax_type:
    case arg_type::ptrdiff_type:
    case arg_type::ssize_type:
      return stored == CU_ARG_LONG;
    case arg_type::unsigned_long_type:
    case arg_type::unsigned_long_long_type:
    case arg_type::uintmax_type:
    case arg_type::unsigned_ptrdiff_type:
    case arg_type::size_type:
      return stored == CU_ARG_ULONG;
    case arg_type::double_type:
    case arg_type::long_double_type:
      return stored == CU_ARG_DOUBLE;
    case arg_type::character_type:
      return stored == CU_ARG_CHAR;
    case arg_type::string_type:
      return stored == CU_ARG_STRING;
    case arg_type::pointer_type:
      return stored == CU_ARG_POINTER;
    case arg_type::none:
      break;
  }
  return false;
}

vk::argument_value value_of(const argument &arg, vk::arg_type type, const std::string &text) {
  vk::argument_value value;
  const std::uint64_t bits = arg.bits.value_or(0);
  double real;
  std::memcpy(&real, &bits, sizeof real);
  switch (type) {
    case vk::arg_type::string_type:
      value.string = text.c_str();
      break;
    case vk::arg_type::double_type:
      value.real = real;
      break;
    case vk::arg_type::long_double_type:
      value.long_real = real;
      break;
    case vk::arg_type::pointer_type:
      value.pointer = reinterpret_cast<const void *>(bits);
      break;
    default:
      value.integer = static_cast<std::intmax_t>(bits);
      break;
  }
  return value;
}

// Doubles the '%' of every "%m".
std::string keep_error_conversions(const std::string &text) {
  std::string out;
  const char *at = text.c_str();
  vk::conversion_scanner scanner(at);
  vk::conversion c;
  while (scanner.next(c) == vk::scan_result::found) {
    out.append(at, c.begin);
    if (c.specifier == 'm') out += '%';
    out.append(c.begin, c.end);
    at = c.end;
  }
  return out + at;
}

}  // namespace

std::string fill_in(const std::string &text, const std::vector<argument> &arguments) {
  const vk::format_arguments wanted = vk::arguments_of(text.c_str());
  if (!wanted.valid || std::cmp_not_equal(wanted.count, arguments.size())) return text;
  std::vector<std::string> strings(arguments.size());
  std::vector<vk::argument_value> values(arguments.size());
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const argument &arg = arguments[i];
    if (!holds(arg.type, wanted.types[i]) || (!arg.bits && !arg.text)) return text;
    strings[i] = arg.text.value_or("");
    values[i] = value_of(arg, wanted.types[i], strings[i]);
  }
  std::vector<char> buffer(kLongest);
  vk::format_message(buffer.data(), buffer.size(), keep_error_conversions(text).c_str(), values.data(), 0);
  return buffer.data();
}

describer::describer() {
  if (geteuid() == 0) (void)unsetenv("NLSPATH");
}

describer::~describer() {
  for (const auto &[name, handle] : open_)
    if (handle != kNone) (void)catclose(handle);
}

nl_catd describer::open(const std::string &name) {
  if (name.empty() || name.find('/') != std::string::npos) return kNone;
  const auto known = open_.find(name);
  if (known != open_.end()) return known->second;
  if (open_.size() >= kMostCatalogues) return kNone;
  nl_catd handle = catopen(name.c_str(), NL_CAT_LOCALE);
  if (handle == kNone) handle = catopen(name.c_str(), 0);
  open_.emplace(name, handle);
  return handle;
}

std::string describer::description(const record &r) {
  const std::string default_text(r.default_text.value_or(""));
  const nl_catd handle = open(std::string(r.catalogue.value_or("")));
  if (handle != kNone && r.set && r.number) {
    const char *const found =
        catgets(handle, static_cast<int>(*r.set), static_cast<int>(*r.number), default_text.c_str());
    if (found != default_text.c_str() && vk::same_conversions(found, default_text.c_str()))
      return fill_in(found, r.arguments);
  }
  return fill_in(default_text, r.arguments);
}

}  // namespace vosk
