#include "support/cu_double.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <type_traits>

namespace cu_double {

namespace {

struct State {
  std::vector<Report> calls;
  std::optional<std::pair<int, int>> failing_arguments;  // result, count
  std::optional<std::vector<cu_arg_t>> given_arguments;
  bool failing_process_info = false;
  std::optional<std::string> process_name;
  int outstanding = 0;
};

State &state() {
  static State instance;
  return instance;
}

// The conversions of a format, each with the position of its argument: only what messages use, that is flags, width,
// precision, length modifiers and `n$`; a `*` takes an int of its own.
struct Conversion {
  int position;
  char kind;     // as in Insert
  int type;      // CU_ARG_...
  size_t begin;  // in the format
  size_t end;
  std::string bare;  // the conversion without its position, for printing
};

bool scan(const std::string &format, std::vector<Conversion> &out) {
  int next = 1;
  for (size_t i = 0; i < format.size();) {
    if (format[i] != '%') {
      ++i;
      continue;
    }
    size_t begin = i++;
    if (i < format.size() && format[i] == '%') {
      ++i;
      continue;
    }
    int position = 0;
    size_t digits = i;
    while (digits < format.size() && std::isdigit(static_cast<unsigned char>(format[digits]))) ++digits;
    if (digits > i && digits < format.size() && format[digits] == '$') {
      position = std::atoi(format.c_str() + i);
      i = digits + 1;
    }
    std::string bare = "%";
    while (i < format.size() && std::strchr("-+ #0'123456789.*", format[i]) != nullptr) {
      if (format[i] == '*') out.push_back({next++, 'd', CU_ARG_INT, begin, begin, ""});
      bare += format[i++];
    }
    int longs = 0;
    while (i < format.size() && std::strchr("hljztL", format[i]) != nullptr) {
      if (format[i] != 'h') ++longs;
      bare += format[i++];
    }
    if (i >= format.size()) return false;
    char letter = format[i++];
    bare += letter;
    Conversion found{position != 0 ? position : next++, 0, 0, begin, i, bare};
    switch (letter) {
      case 'd':
      case 'i':
        found.kind = 'd';
        found.type = longs != 0 ? CU_ARG_LONG : CU_ARG_INT;
        break;
      case 'u':
      case 'x':
      case 'X':
      case 'o':
        found.kind = 'u';
        found.type = longs != 0 ? CU_ARG_ULONG : CU_ARG_UINT;
        break;
      case 'c':
        found.kind = 'd';
        found.type = CU_ARG_CHAR;
        break;
      case 's':
        found.kind = 's';
        found.type = CU_ARG_STRING;
        break;
      case 'p':
        found.kind = 'p';
        found.type = CU_ARG_POINTER;
        break;
      case 'e':
      case 'f':
      case 'g':
      case 'E':
      case 'F':
      case 'G':
      case 'a':
      case 'A':
        found.kind = 'f';
        found.type = CU_ARG_DOUBLE;
        break;
      default:
        return false;
    }
    out.push_back(found);
  }
  return true;
}

// The arguments in the order of their positions; false where the format cannot be followed.
bool collect(const char *format, va_list *arguments, std::vector<cu_arg_t> &out) {
  std::vector<Conversion> conversions;
  if (!scan(format, conversions)) return false;
  std::map<int, int> types;
  for (const Conversion &conversion : conversions) types[conversion.position] = conversion.type;
  int expected = 1;
  for (auto [position, type] : types) {
    if (position != expected++) return false;
    cu_arg_t argument{};
    argument.type = type;
    switch (type) {
      case CU_ARG_STRING:
        argument.value.string = va_arg(*arguments, const char *);
        break;
      case CU_ARG_POINTER:
        argument.value.pointer = va_arg(*arguments, const void *);
        break;
      case CU_ARG_DOUBLE:
        argument.value.real = va_arg(*arguments, double);
        break;
      case CU_ARG_LONG:
        argument.value.i64 = va_arg(*arguments, long);
        break;
      case CU_ARG_ULONG:
        argument.value.u64 = va_arg(*arguments, unsigned long);
        break;
      case CU_ARG_UINT:
        argument.value.u64 = va_arg(*arguments, unsigned);
        break;
      default:
        argument.value.i64 = va_arg(*arguments, int);
    }
    out.push_back(argument);
  }
  return true;
}

Insert insert_of(const cu_arg_t &argument) {
  char text[64];
  switch (argument.type) {
    case CU_ARG_STRING:
      if (argument.value.string == nullptr) return {'s', "", true};
      return {'s', argument.value.string};
    case CU_ARG_UINT:
    case CU_ARG_ULONG:
      return {'u', std::to_string(argument.value.u64)};
    case CU_ARG_POINTER:
      std::snprintf(text, sizeof text, "%p", argument.value.pointer);
      return {'p', text, argument.value.pointer == nullptr};
    case CU_ARG_DOUBLE:
      std::snprintf(text, sizeof text, "%.17g", argument.value.real);
      return {'f', text};
    default:
      return {'d', std::to_string(argument.value.i64)};
  }
}

}  // namespace

std::string Report::summary() const {
  switch (routine) {
    case kSetNoError:
      return "no error";
    case kSetErrorArgs:
      return "args " + std::to_string(count) + " = " + std::to_string(result);
    case kRelErrorArgs:
      return "release " + std::to_string(count);
    case kGetProcInfo:
      return "process " + std::to_string(pid) + " = " + std::to_string(result);
    case kSetError:
      break;
  }
  std::string out =
      std::to_string(id) + ": " + catalogue + " " + std::to_string(set) + "/" + std::to_string(number) + " (";
  for (size_t i = 0; i < inserts.size(); ++i) {
    if (i != 0) out += ", ";
    out += inserts[i].kind != 's' ? inserts[i].text : inserts[i].null ? "null" : "\"" + inserts[i].text + "\"";
  }
  return out + ")";
}

void reset() {
  if (state().outstanding != 0) ADD_FAILURE() << state().outstanding << " argument arrays were never released";
  state() = State{};
}

const std::vector<Report> &all() {
  return state().calls;
}

std::vector<std::string> sequence() {
  std::vector<std::string> out;
  for (const Report &report : all()) out.push_back(report.summary());
  return out;
}

std::vector<std::string> reports() {
  std::vector<std::string> out;
  for (const Report &report : all()) {
    if (report.routine == Report::kSetError || report.routine == Report::kSetNoError) out.push_back(report.summary());
  }
  return out;
}

std::vector<Report> errors() {
  std::vector<Report> out;
  for (const Report &report : all()) {
    if (report.routine == Report::kSetError) out.push_back(report);
  }
  return out;
}

std::string formatted(const Report &report) {
  std::vector<Conversion> conversions;
  scan(report.text, conversions);
  std::string out;
  size_t done = 0;
  auto literal = [&](size_t end) {
    for (; done < end; ++done) {
      out += report.text[done];
      if (report.text[done] == '%') ++done;  // "%%"
    }
  };
  for (const Conversion &conversion : conversions) {
    if (conversion.bare.empty()) continue;
    literal(conversion.begin);
    done = conversion.end;
    size_t index = static_cast<size_t>(conversion.position) - 1;
    out += index < report.inserts.size() ? report.inserts[index].text : "?";
  }
  literal(report.text.size());
  return out;
}

void fail_arguments(int result, int count) {
  state().failing_arguments = {result, count};
}
void give_arguments(std::vector<cu_arg_t> arguments) {
  state().given_arguments = std::move(arguments);
}
void fail_process_info() {
  state().failing_process_info = true;
}
void give_process_name(std::string name) {
  state().process_name = std::move(name);
}
int arguments_outstanding() {
  return state().outstanding;
}

}  // namespace cu_double

using cu_double::Report;
using cu_double::state;

extern "C" {

int cu_set_error_1(int id, int zero, const char *catalogue, int set, int number, const char *default_text, ...) {
  Report report{Report::kSetError};
  report.id = report.result = id;
  report.zero = zero;
  report.catalogue = catalogue == nullptr ? "" : catalogue;
  report.set = set;
  report.number = number;
  report.text_pointer = default_text;
  report.text = default_text == nullptr ? "" : default_text;
  va_list arguments;
  va_start(arguments, default_text);
  std::vector<cu_arg_t> inserts;
  if (default_text != nullptr && !cu_double::collect(default_text, &arguments, inserts)) {
    ADD_FAILURE() << "a default text whose conversions cannot be followed: " << default_text;
  }
  va_end(arguments);
  for (const cu_arg_t &insert : inserts) report.inserts.push_back(cu_double::insert_of(insert));
  state().calls.push_back(report);
  return id;
}

int cu_set_no_error_1(void) {
  state().calls.push_back(Report{Report::kSetNoError});
  return 0;
}

int cu_set_error_args_1(const char *default_message, va_list args, cu_arg_t **out, int *count) {
  Report report{Report::kSetErrorArgs};
  report.text_pointer = default_message;
  report.text = default_message == nullptr ? "" : default_message;
  *out = nullptr;
  *count = 0;
  std::vector<cu_arg_t> collected;
  va_list copy;
  va_copy(copy, args);
  bool understood = default_message == nullptr || cu_double::collect(default_message, &copy, collected);
  // The caller's list is used up, where a callee can do that.
  [](auto list, auto &used) {
    if constexpr (std::is_pointer_v<decltype(list)>) *list = *used;
  }(args, copy);
  va_end(copy);
  if (state().failing_arguments) {
    report.result = state().failing_arguments->first;
    *count = state().failing_arguments->second;
    // What a failure leaves behind `out` is nothing to use, nor to release.
    if (report.result != 0) *out = reinterpret_cast<cu_arg_t *>(sizeof(cu_arg_t));
  } else if (state().given_arguments) {
    collected = *state().given_arguments;
  } else if (!understood) {
    report.result = -1;
  }
  if (report.result == 0 && !collected.empty()) {
    *out = static_cast<cu_arg_t *>(std::malloc(collected.size() * sizeof(cu_arg_t)));
    std::memcpy(*out, collected.data(), collected.size() * sizeof(cu_arg_t));
    *count = static_cast<int>(collected.size());
    ++state().outstanding;
  }
  for (const cu_arg_t &argument : collected) report.inserts.push_back(cu_double::insert_of(argument));
  report.count = *count;
  state().calls.push_back(report);
  return report.result;
}

int cu_rel_error_args_1(cu_arg_t *args, int count) {
  Report report{Report::kRelErrorArgs};
  report.count = count;
  if (args != nullptr) {
    --state().outstanding;
    std::free(args);
  }
  state().calls.push_back(report);
  return 0;
}

int cu_get_proc_info_1(cu_proc_info_t *record, int pid) {
  Report report{Report::kGetProcInfo};
  report.pid = pid;
  std::string name;
  if (state().process_name) {
    name = *state().process_name;
  } else if (!state().failing_process_info) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/comm", pid);
    if (std::FILE *file = std::fopen(path, "r")) {
      char line[64] = "";
      if (std::fgets(line, sizeof line, file) != nullptr) name.assign(line, std::strcspn(line, "\n"));
      std::fclose(file);
    }
  }
  if (state().failing_process_info || (name.empty() && !state().process_name)) {
    errno = ESRCH;
  } else {
    std::memset(record, 0, sizeof *record);
    record->pid = pid;
    std::memcpy(record->command, name.data(), std::min(name.size(), sizeof record->command));
    report.result = 1;
  }
  state().calls.push_back(report);
  return report.result;
}

}  // extern "C"
