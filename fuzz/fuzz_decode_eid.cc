// Both decoders over an arbitrary text: what they accept has the fields that the tools' own decoder finds, and what
// that one accepts they accept.
#include <qx_vosk.h>

#include "fuzz/target.h"
#include "reader/identifier.h"

namespace {

struct outputs {
  unsigned on_node = 7, version = 7, location = 7, templ = 7, facility = 7, priority = 7, ipv6 = 7;
  timeval time = {};
  fuzz::exact names{std::size_t{2} * 256}, address{16};
};

bool found_nothing_wrong(int result, unsigned location) {
  // The search for the file depends on the machine.
  return result == VOSK_SUCCESS || (location == VK_LOCATION_STACK && result != VOSK_INV_PARAM5);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const std::string text = in.text(60);
  fuzz::exact eid(text);
  outputs one, two;
  // Each search for this node's addresses leaves a socket open, which would not do for long here.
  const int next = dup(STDERR_FILENO);
  close(next);
  const int first = vk_decode_eid(0, nullptr, eid.get(), &one.on_node, &one.version, &one.location, one.names.get(),
                                  &one.templ, &one.time, one.address.get(), &one.ipv6);
  const int second =
      vk_decode_eid_2(0, nullptr, eid.get(), &two.on_node, &two.version, &two.location, two.names.get(), 2, &two.templ,
                      &two.facility, &two.priority, &two.time, two.address.get(), &two.ipv6);
  close(next);
  close(next + 1);
  if (first == VOSK_SUCCESS) {
    FUZZ_EXPECT(one.version == 1 && one.location < VK_LOCATION_SYSLOG);
    FUZZ_EXPECT(two.version == 1 && one.location == two.location && one.templ == two.templ);
    FUZZ_EXPECT(one.time.tv_sec == two.time.tv_sec && one.time.tv_usec == two.time.tv_usec);
    FUZZ_EXPECT(one.ipv6 == two.ipv6 && one.address.bytes() == two.address.bytes());
  }
  const auto known = vosk::decode_identifier(text);
  if (!known || !known->microseconds || !known->address) return 0;
  FUZZ_EXPECT(two.version == static_cast<unsigned>(known->version));
  FUZZ_EXPECT(two.location == static_cast<unsigned>(known->where));
  FUZZ_EXPECT(two.time.tv_sec == known->seconds && two.time.tv_usec == *known->microseconds);
  FUZZ_EXPECT(two.ipv6 == (known->address->ipv6 ? 1u : 0u));
  FUZZ_EXPECT(std::memcmp(two.address.get(), known->address->bytes.data(), two.ipv6 != 0 ? 16 : 4) == 0);
  if (known->where == vosk::location::error_template) {
    FUZZ_EXPECT(second == (known->template_id != 0 ? VOSK_SUCCESS : VOSK_FAILURE) && two.templ == known->template_id);
  } else {
    FUZZ_EXPECT(found_nothing_wrong(second, two.location));
  }
  if (known->where == vosk::location::system_log) {
    FUZZ_EXPECT(two.facility == known->facility * 8 && two.priority == known->priority);
  }
  return 0;
}
