// What the tests of identifier decoding share: the two calls with all of their outputs, each of which starts as a
// pattern, and the surroundings.
#ifndef QX_TESTS_IDENTIFIERS_DECODING_H
#define QX_TESTS_IDENTIFIERS_DECODING_H

#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/interpose.h"

namespace decoding {

constexpr unsigned kUnset = 0xA5A5A5A5;
constexpr std::int64_t kUnsetTime = static_cast<std::int64_t>(0xA5A5A5A5A5A5A5A5);

// What a call leaves in its outputs.
struct Values {
  unsigned on_node = kUnset, version = kUnset, location = kUnset, templ_id = kUnset, facility = kUnset,
           priority = kUnset, ipv6 = kUnset;
  std::int64_t seconds = kUnsetTime, microseconds = kUnsetTime;
  std::string address = std::string(16, EdgeBuffer::kUntouched);
  std::string names;  // as many bytes as the slots have

  bool operator==(const Values &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Values &values) {
  return out << std::hex << "on_node " << values.on_node << " version " << values.version << " location "
             << values.location << " template " << values.templ_id << " facility " << values.facility << " priority "
             << values.priority << " ipv6 " << values.ipv6 << " seconds " << values.seconds << " microseconds "
             << values.microseconds << std::dec << " address " << testing::PrintToString(values.address) << " names "
             << testing::PrintToString(values.names.substr(0, 40));
}

// One call's outputs. `null` names output parameters that are passed as null.
class Outputs {
 public:
  explicit Outputs(std::size_t slots = 1) : names_(slots * 256) {}

  int decode(int version, unsigned trace_on, const char *trace_path, const char *eid,
             const std::vector<std::string_view> &null = {}) {
    const auto pointer = [&](auto *output, std::string_view name) -> decltype(output) {
      for (std::string_view none : null) {
        if (none == name) return nullptr;
      }
      return output;
    };
    unsigned *version_id = pointer(&values_.version, "version_id");
    unsigned *location = pointer(&values_.location, "location_mask");
    char *names = pointer(names_.chars(), "stack_file");
    unsigned *templ_id = pointer(&values_.templ_id, "err_templ_label");
    unsigned *facility = pointer(&values_.facility, "bsd_facility");
    unsigned *priority = pointer(&values_.priority, "bsd_priority");
    timeval *time = pointer(&time_, "timestamp");
    char *address = pointer(address_.chars(), "ip_addr");
    unsigned *ipv6 = pointer(&values_.ipv6, "ipv6_flag");
    if (version == 1) {
      return vk_decode_eid(trace_on, trace_path, eid, &values_.on_node, version_id, location, names, templ_id, time,
                           address, ipv6);
    }
    return vk_decode_eid_2(trace_on, trace_path, eid, &values_.on_node, version_id, location, names,
                           static_cast<unsigned>(names_.size() / 256), templ_id, facility, priority, time, address,
                           ipv6);
  }

  Values values() const {
    Values all = values_;
    all.seconds = time_.tv_sec;
    all.microseconds = time_.tv_usec;
    all.address = address_.bytes();
    all.names = names_.bytes();
    return all;
  }
  // What is there before a call.
  Values untouched() const {
    Values all;
    all.names = std::string(names_.size(), EdgeBuffer::kUntouched);
    return all;
  }
  void reset() {
    values_ = {};
    time_ = {kUnsetTime, kUnsetTime};
    address_.fill(EdgeBuffer::kUntouched);
    names_.fill(EdgeBuffer::kUntouched);
  }
  EdgeBuffer &names() { return names_; }

 private:
  Values values_;
  timeval time_ = {kUnsetTime, kUnsetTime};
  EdgeBuffer address_{16};
  EdgeBuffer names_;
};

// 192.168.1.10 and 2001:db8::1, encoded, with their types and their bytes.
constexpr const char *kAddress = ".XO.8....................";
constexpr const char *kAddressIpv6 = "U2E1s0...............././";
constexpr std::string_view kAddressBytes("\xC0\xA8\x01\x0A", 4);
constexpr std::string_view kAddressBytesIpv6("\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x01", 16);
constexpr const char *kTime = ".2zIZ/.7S.";  // 1700000000 seconds, 123456 microseconds

inline std::string eid(const std::string &header_and_field, const std::string &time = kTime,
                       const std::string &address = kAddress) {
  return header_and_field + time + address;
}

// A node with the loopback and these addresses.
inline void on_a_node_with(platform::Calls &calls, const std::vector<std::string> &addresses) {
  std::vector<platform::FakeInterface> list(1);
  list[0].name = "lo";
  list[0].address = "127.0.0.1";
  list[0].flags = IFF_UP | IFF_LOOPBACK;
  for (const std::string &address : addresses) {
    platform::FakeInterface interface;
    interface.name = "eth" + std::to_string(list.size() - 1);
    interface.address = address;
    interface.flags = IFF_UP;
    list.push_back(interface);
  }
  calls.fake_interfaces(list);
}

// What a call finds: the node of kAddress or another one, and there the stacks directory.
using Surroundings = std::function<void(platform::Calls &)>;

inline void here(platform::Calls &calls) {
  on_a_node_with(calls, {"10.0.0.1", "192.168.1.10"});
}
inline void elsewhere(platform::Calls &calls) {
  on_a_node_with(calls, {"10.0.0.1", "192.168.1.11"});
}
inline Surroundings here_with(const std::vector<platform::FakeEntry> &entries) {
  return [=](platform::Calls &calls) {
    here(calls);
    calls.fake_directory(entries);
  };
}
inline Surroundings here_without_directory(int error) {
  return [=](platform::Calls &calls) {
    here(calls);
    calls.fail_nth("opendir", 1, error, "/var/adm/vosk/stacks");
  };
}

// The calls leave a socket each, on purpose; the tests do not keep them.
inline void close_left_open(const platform::Calls &calls) {
  for (const auto &left : calls.left_open()) close(left.first);
}

// A name slot as the lookup leaves it.
inline std::string slot(std::string_view name) {
  std::string bytes(name);
  bytes.resize(255, '\0');
  return bytes + EdgeBuffer::kUntouched;
}

}  // namespace decoding

#endif
