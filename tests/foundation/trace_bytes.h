// Trace files and entries of known lengths, put together by hand.
#ifndef QX_TESTS_FOUNDATION_TRACE_BYTES_H
#define QX_TESTS_FOUNDATION_TRACE_BYTES_H

#include <gtest/gtest.h>

#include <string>

#include "qx_vosk.h"
#include "support/interpose.h"

namespace foundation {

// The header line as a file of five-digit values has it.
inline std::string header(int offset, int wraps, int size) {
  char text[64];
  std::snprintf(text, sizeof text, "VKTFO=%-5d VKTFW=%-5d VKTFS=%-5d\n", offset, wraps, size);
  return text;
}

inline const std::string kEnd = "[END OF FINAL ENTRY]\n";
inline const std::string kRecycle = std::string("[FILE RECYCLES HERE]\n") + '\0';

// The entry of `length` bytes, 70 to 142, that write_entry appends.
inline std::string entry_of(int length) {
  return "\x01Wed Jan 31 23:59:59 2024\n\tVOSK Routine: \n\tCalled by PID 1 Thread 0\n\t" +
         std::string(static_cast<std::size_t>(length - 70), 'n') + "\n";
}

// Appends an entry of `length` bytes.
inline int write_entry(platform::Calls &calls, const std::string &path, int length) {
  calls.fixed_clock(1706745599, 0);
  calls.return_all("getpid", 1);
  calls.return_all("pthread_self", 0);
  const std::string message = length == 70 ? "\n" : std::string(static_cast<std::size_t>(length - 70), 'n');
  platform::UtcZone zone;
  return calls.during([&] { return vk_debug(path.c_str(), "", "%s", message.c_str()); });
}

inline int write_entry(const std::string &path, int length) {
  platform::Calls calls;
  return write_entry(calls, path, length);
}

// `bytes` with `piece` laid over them at `at`.
inline std::string over(std::string bytes, std::size_t at, const std::string &piece) {
  if (bytes.size() < at + piece.size()) bytes.resize(at + piece.size(), '\0');
  return bytes.replace(at, piece.size(), piece);
}

}  // namespace foundation

#endif
