#include "recording_calls.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
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

std::size_t room_for_message(const incident &what, const std::string &name) {
  std::size_t before = kPrefix + kIdentifiers + kProcess + kLine + kMessage;
  for (const std::string *text : {&name, &what.source, &what.version, &what.product, &what.catalogue})
    before += text->size() + 1;
  return before < kRecord ? kRecord - before : 0;
}

std::string process_name() {
  const char *const name = std::getenv("VOSKPNAME");
  return name != nullptr ? name : "";
}

// How many bytes of a System Log record are left for the message.
std::size_t room_in_log(const incident &what, bool has_file) {
  constexpr std::size_t kLogRecord = 992, kLongestLogMessage = 945, kLocation = 46;
  constexpr std::string_view kFixed =
      "(Recorded using libqx_vosk.a cv 2):::Error ID: :::Reference ID: :::Template ID: :::Details File: :::Location: "
      ":::";
  char number[16];
  const auto template_end = std::to_chars(number, number + sizeof number, what.template_id, 16).ptr;
  std::size_t before = kFixed.size() + VK_EID_SIZE - 1 + what.cause.size() + kLocation;
  before += static_cast<std::size_t>(template_end - number);
  if (has_file)
    before +=
        sizeof "/var/adm/vosk/dumps/..20261121.000000" - 1 + process_name().size() + std::to_string(getpid()).size();
  return before < kLogRecord ? std::min(kLogRecord - before, kLongestLogMessage) : 0;
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

// The length of the longest start of `text` that has whole characters only, a "%%" being one, and at most `room` bytes.
std::size_t whole_characters(const std::string &text, std::size_t room) {
  if (text.size() <= room) return text.size();
  std::size_t end = 0;
  for (;;) {
    const std::string_view rest{text.data() + end, text.size() - end};
    const std::size_t length = rest.starts_with("%%") ? 2 : std::max<std::size_t>(utf8_length(rest), 1);
    if (end + length > room) return end;
    end += length;
  }
}

const char *or_null(const std::string &text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

std::string fitted_format(const incident &what, const std::string &name) {
  const std::size_t room = room_for_message(what, name);
  if (what.format.size() <= room) return what.format;
  const std::size_t end = whole_characters(what.format, room);
  return what.format.substr(0, end) + std::string(room - end + 1, ' ');
}

std::string fitted_detail(const incident &what, const std::string &name) {
  if (!what.detail_is_default) return what.detail;
  std::size_t taken = what.format.size() + 1 + kCount;
  for (const std::string &argument : what.arguments) taken += std::min(argument.size(), kLongestArgument) + kArgument;
  const std::size_t room = room_for_message(what, name);
  return room > taken ? what.detail.substr(0, room - taken) : what.detail;
}

int call_push(const incident &what, recorder who, vk_eid_t &eid) {
  const std::string name = process_name();
  const std::string format = fitted_format(what, name), detail = fitted_detail(what, name);
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

int call_log(const incident &what, vk_eid_t &eid, bool &cut) {
  // The library tests only whether there are details. Those that are a text get into the System Log as a file.
  const detail_source file = !what.detail.empty() && !what.detail_is_default ? detail_source::of_text(what.detail)
                                                                             : detail_source::of_file(what.detail_file);
  const std::string product = as_log_text(what.product), source = as_log_text(what.source),
                    version = as_log_text(what.version), text = as_log_text(formatted(what));
  const std::string fitted = text.substr(0, whole_characters(text, room_in_log(what, !file.path().empty())));
  cut = fitted.size() < text.size();
  const char *const data = file.path().empty() ? "the message" : nullptr;
  return vk_log_error_1(&eid, or_null(what.cause), what.resource.c_str(), product.c_str(), source.c_str(),
                        version.c_str(), what.line, 0, what.event_type, what.template_id, data, sizeof "the message",
                        or_null(file.path()), as_format(fitted).c_str());
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
