// What the tests of identifier generation share: a known clock, a known stack file and a known address.
#ifndef QX_TESTS_IDENTIFIERS_MAKING_H
#define QX_TESTS_IDENTIFIERS_MAKING_H

#include <cstdint>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/interpose.h"

namespace making {

constexpr const char *kStackFile = "/var/adm/vosk/stacks/s.1";
constexpr const char *kAddress = ".XO.8....................";  // 192.168.1.10
constexpr std::int64_t kSeconds = 1700000000, kMicroseconds = 123456;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::int64_t kUnsetSeconds = 0x5A5A5A5A5A5A5A5A;

// The identifier that begins so; time and address are always the same.
inline std::string identifier(const std::string &header_and_field) {
  return header_and_field + ".2zIZ/.7S." + kAddress;
}

// What a call asks for; version 1 knows neither facility nor priority.
struct Request {
  int version;
  const char *stack_file;
  std::uint32_t templ_id;
  std::uint32_t facility = kNone, priority = kNone;
};

inline int make(const Request &request, int trace_on, const char *trace_path, std::int64_t *seconds, char *eid) {
  const auto on = static_cast<unsigned>(trace_on);
  if (request.version == 1) return vk_generate_eid(on, trace_path, request.stack_file, request.templ_id, seconds, eid);
  return vk_generate_eid_2(on, trace_path, request.stack_file, request.templ_id, request.facility, request.priority,
                           seconds, eid);
}

// One call and what it left in the caller's memory.
struct Made {
  EdgeBuffer eid{VK_EID_SIZE};
  std::int64_t seconds = kUnsetSeconds;

  bool untouched() const { return eid.untouched() && seconds == kUnsetSeconds; }
};

// The surroundings of a call: the stack file has the i-node 1234567.
inline void know_everything(platform::Calls &calls) {
  platform::FakeStat status;
  status.inode = 1234567;
  calls.fake_stat("stat", kStackFile, status);
  calls.fixed_clock(kSeconds, kMicroseconds);
}

}  // namespace making

#endif
