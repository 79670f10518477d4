// qx_vosk.hpp - libqx_vosk for C++20: identifiers as values, results with their message, recordings by name.
//
//   qx::vosk::establish();                                    // once, early
//   ...
//   const auto made = qx::vosk::push({.message = "cannot open the settings", .details = why, .product = "orders"});
//   std::cerr << made.id << '\n';
//
// Header only: it adds no symbol to the library. Link with qx_vosk and qx_cu (pkg-config --libs qx_vosk qx_cu). What
// qx_vosk.h says of threads holds here, too.
#ifndef QX_VOSK_HPP
#define QX_VOSK_HPP

#if __cplusplus < 202002L
#error "qx_vosk.hpp needs C++20; qx_vosk.h and qx_vosk_macros.h do with less"
#endif

#include <qx_cu.h>
#include <qx_vosk.h>

#include <chrono>
#include <compare>
#include <cstring>
#include <optional>
#include <ostream>
#include <version>
#if defined(__cpp_lib_source_location)
#include <source_location>
#endif
#include <string>
#include <string_view>

namespace qx::vosk {

#if defined(__cpp_lib_source_location)
using std::source_location;
#else
// For compilers whose library has none yet.
class source_location {
 public:
  static constexpr source_location current(const char *file = __builtin_FILE(),
                                           unsigned int line = __builtin_LINE()) noexcept {
    return {file, line};
  }
  constexpr const char *file_name() const noexcept { return file_; }
  constexpr unsigned int line() const noexcept { return line_; }

 private:
  constexpr source_location(const char *file, unsigned int line) noexcept : file_(file), line_(line) {}
  const char *file_;
  unsigned int line_;
};
#endif

// What an identifier says of its record.
struct decoded {
  enum class location { error_template = VK_LOCATION_TEMPLATE, stack = VK_LOCATION_STACK, syslog = VK_LOCATION_SYSLOG };
  location where;
  std::chrono::sys_time<std::chrono::microseconds> when;
  unsigned int version;
  bool on_this_node;
  bool ipv6;
  unsigned char address[16];         // network order; 4 bytes for IPv4
  std::optional<std::string> stack;  // the stack file's name, where it is on this node and still there
  unsigned int error_template;       // of an error template
  unsigned int facility, priority;   // of the System Log, as <syslog.h> has them
};

// A VOSK Error Identifier, or none.
class identifier {
 public:
  identifier() noexcept = default;

  // An identifier from a text, which must have its 42 characters; whether they mean something decode() tells.
  static std::optional<identifier> parse(std::string_view text) noexcept {
    if (text.size() != VK_EID_SIZE - 1 || text.find('\0') != text.npos) return std::nullopt;
    identifier id;
    std::memcpy(id.text_, text.data(), text.size());
    return id;
  }

  explicit operator bool() const noexcept { return text_[0] != '\0'; }
  std::string_view text() const noexcept { return text_; }
  const char *c_str() const noexcept { return text_; }
  vk_eid_t *out() noexcept { return &text_; }

  // What it says; nothing when it is no identifier of a version that is known here.
  std::optional<decoded> decode() const {
    unsigned int on_node = 0, version = 0, location = 0, templ = 0, facility = 0, priority = 0, ipv6 = 0;
    timeval time = {};
    char name[256] = "";
    decoded result = {};
    const int code = vk_decode_eid_2(0, nullptr, text_, &on_node, &version, &location, name, 1, &templ, &facility,
                                     &priority, &time, result.address, &ipv6);
    if (code != VOSK_SUCCESS && code != VOSK_FILE_MISSING) return std::nullopt;
    result.where = static_cast<decoded::location>(location);
    result.when = std::chrono::sys_time<std::chrono::microseconds>(std::chrono::seconds(time.tv_sec) +
                                                                   std::chrono::microseconds(time.tv_usec));
    result.version = version;
    result.on_this_node = on_node == 1;
    result.ipv6 = ipv6 == 1;
    if (name[0] != '\0') result.stack = name;
    result.error_template = templ;
    result.facility = facility;
    result.priority = priority;
    return result;
  }

  friend bool operator==(const identifier &a, const identifier &b) noexcept { return a.text() == b.text(); }
  friend std::strong_ordering operator<=>(const identifier &a, const identifier &b) noexcept {
    return a.text() <=> b.text();
  }
  friend std::ostream &operator<<(std::ostream &stream, const identifier &id) { return stream << id.text(); }

 private:
  vk_eid_t text_ = "";
};

// What a call reported: a code of qx_vosk.h and its message, empty for 0.
struct status {
  int code = VK_SUCCESS;
  std::string message;
  bool clean() const noexcept { return code == VK_SUCCESS; }
};

// What came of a recording. With attentions the record is made all the same; the last one is kept.
struct recording : status {
  identifier id;
  bool recorded() const noexcept {
    return code == VK_SUCCESS || (code >= VK_DETAIL_BOTH && code <= VK_NO_UNIQUE_EID) || code == VK_RECORD_TRUNCATED;
  }
};

#ifdef __GNUC__
// Another libqx_cu may have no more than the five routines that libqx_vosk calls: results are then without a message.
#pragma weak cu_get_error_1
#endif

namespace detail {

template <typename Status>
Status &with_message(Status &made, int code) {
  made.code = code;
  cu_error_t error;
  if (code != VK_SUCCESS && cu_get_error_1 != nullptr && cu_get_error_1(&error) == code) made.message = error.text;
  return made;
}

inline const char *or_null(const std::string &text) noexcept {
  return text.empty() ? nullptr : text.c_str();
}

inline const char *or_null(const identifier &id) noexcept {
  return id ? id.c_str() : nullptr;
}

// The text as a format that prints it. Not "%s" with an argument: of an argument a record keeps 64 bytes.
inline std::string as_format(const std::string &text) {
  std::string format;
  for (const char c : text) format.append(c == '%' ? 2 : 1, c);
  return format;
}

}  // namespace detail

// Establishes the process's environment: creates one, or inherits the one that is there.
inline status establish(int option = VK_STACK_CREAT) {
  status made;
  return detail::with_message(made, vk_init_1(option));
}

// An incident. The message is data: nothing in it is read as a format.
struct incident {
  std::string message;
  std::string details = {};
  std::string detail_file = {};
  identifier cause = {};
  std::string resource = {};
  std::string product = {};
  std::string source_version = {};
  std::string catalogue = {};
  int message_set = -1;
  int message_number = -1;
};

#ifdef __GNUC__
// as_format has made every percent sign of the message a plain one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
// Records an incident in the Error Stack.
inline recording push(const incident &in, source_location from = source_location::current()) {
  recording made;
  const std::string format = detail::as_format(in.message);
  const int code =
      vk_push_stack_1(made.id.out(), detail::or_null(in.cause), detail::or_null(in.resource),
                      detail::or_null(in.product), from.file_name(), detail::or_null(in.source_version),
                      static_cast<int>(from.line()), 0, detail::or_null(in.details), detail::or_null(in.detail_file),
                      detail::or_null(in.catalogue), in.message_set, in.message_number, detail::or_null(format));
  return detail::with_message(made, code);
}
#ifdef __GNUC__
#pragma GCC diagnostic pop
#endif

// Records an incident in the System Log.
inline recording log(const incident &in, int event_type = VOSK_ERROR,
                     source_location from = source_location::current()) {
  recording made;
  const int code = vk_log_error_1(made.id.out(), detail::or_null(in.cause), detail::or_null(in.resource),
                                  detail::or_null(in.product), from.file_name(), detail::or_null(in.source_version),
                                  static_cast<int>(from.line()), 0, event_type, 0, detail::or_null(in.details),
                                  static_cast<std::int64_t>(in.details.size()), detail::or_null(in.detail_file),
                                  in.message.empty() ? nullptr : "%s", in.message.c_str());
  return detail::with_message(made, code);
}

}  // namespace qx::vosk

#endif
