#include "recording_calls.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "detail_source.h"
#include "libqx_cu/message.h"
#include "message_format.h"
#include "reader/escape.h"
#include "reader/safe_file.h"

namespace vosk {

namespace {

// A record of the Error Stack, from its prefix to the message; each text has a zero byte behind it.
constexpr std::size_t kRecord = 1024, kPrefix = 8, kIdentifiers = 4 + 43 + 43 + 4, kProcess = 12, kLine = 4,
                      kMessage = 8, kCount = 4, kLongestArgument = 64, kArgument = 5;
constexpr std::size_t kLongestMessage = 65536;

std::size_t room_for_message(const incident &what, const std::string &process_name) {
  std::size_t before = kPrefix + kIdentifiers + kProcess + kLine + kMessage;
  for (const std::string *text : {&process_name, &what.source, &what.version, &what.product, &what.catalogue})
    before += text->size() + 1;
  return before < kRecord ? kRecord - before : 0;
}

std::array<const char *, kMostArguments> pointers(const std::vector<std::string> &arguments) {
  std::array<const char *, kMostArguments> list;
  list.fill("");
  for (std::size_t i = 0; i < std::min(arguments.size(), list.size()); ++i) list[i] = arguments[i].c_str();
  return list;
}

// The message with its arguments in their places.
std::string formatted(const incident &what) {
  std::vector<vk::argument_value> values(kMostArguments);
  const auto strings = pointers(what.arguments);
  for (std::size_t i = 0; i < kMostArguments; ++i) values[i].string = strings[i];
  std::vector<char> text(kLongestMessage);
  vk::format_message(text.data(), text.size(), what.format.c_str(), values.data(), 0);
  return text.data();
}

const char *or_null(const std::string &text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

std::string fitted_format(const incident &what, const std::string &process_name) {
  const std::string &format = what.format;
  const std::size_t room = room_for_message(what, process_name);
  if (format.size() <= room) return format;
  std::size_t end = 0;
  for (;;) {
    const std::string_view rest = std::string_view(format).substr(end);
    const std::size_t length = rest.starts_with("%%") ? 2 : std::max<std::size_t>(utf8_length(rest), 1);
    if (end + length > room) break;
    end += length;
  }
  return format.substr(0, end) + std::string(room - end + 1, ' ');
}

std::string fitted_detail(const incident &what, const std::string &process_name) {
  if (!what.detail_is_default) return what.detail;
  std::size_t taken = what.format.size() + 1 + kCount;
  for (const std::string &argument : what.arguments) taken += std::min(argument.size(), kLongestArgument) + kArgument;
  const std::size_t room = room_for_message(what, process_name);
  return room > taken ? what.detail.substr(0, room - taken) : what.detail;
}

int call_push(const incident &what, recorder who, vk_eid_t &eid) {
  const char *const name = std::getenv("VOSKPNAME");
  const std::string process_name = name != nullptr ? name : "";
  const std::string format = fitted_format(what, process_name), detail = fitted_detail(what, process_name);
  vk_eid_t cause = "";
  what.cause.copy(cause, sizeof cause - 1);
  const auto a = pointers(what.arguments);
  const auto push = who == recorder::parent ? vk_push_stack_cmd_1 : vk_push_stack_1;
  return push(&eid, what.cause.empty() ? nullptr : cause, what.resource.c_str(), what.product.c_str(),
              what.source.c_str(), what.version.c_str(), what.line, 0, or_null(detail), or_null(what.detail_file),
              what.catalogue.c_str(), what.set, what.number, format.c_str(), a[0], a[1], a[2], a[3], a[4], a[5], a[6],
              a[7], a[8], a[9], a[10], a[11], a[12], a[13], a[14], a[15]);
}

std::string as_log_text(const std::string &text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    out += text[i];
    if (text[i] == '%' && i + 1 < text.size() && (text[i + 1] == '%' || text[i + 1] == 'm')) out += '%';
  }
  return out;
}

int call_log(const incident &what, vk_eid_t &eid) {
  const std::string product = as_log_text(what.product), source = as_log_text(what.source),
                    version = as_log_text(what.version), text = formatted(what);
  const std::string format = as_format(as_log_text(text));
  // The library tests only whether there are details. Those that are a text get into the System Log as a file.
  const detail_source file = !what.detail.empty() && !what.detail_is_default ? detail_source::of_text(what.detail)
                                                                             : detail_source::of_file(what.detail_file);
  const char *const data = file.path().empty() ? text.c_str() : nullptr;
  return vk_log_error_1(&eid, or_null(what.cause), what.resource.c_str(), product.c_str(), source.c_str(),
                        version.c_str(), what.line, 0, what.event_type, what.template_id, data,
                        static_cast<std::int64_t>(text.size() + 1), or_null(file.path()), format.c_str());
}

bool system_log_listens() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view("/dev/log").copy(address.sun_path, sizeof address.sun_path - 1);
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    const unique_fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.valid() && connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return true;
    if (fd.valid() && errno == EAGAIN) return true;  // it has much to do
  }
  return false;
}

}  // namespace vosk
