// Interface lists for the tests of address discovery.
#ifndef QX_TESTS_ADDRESSES_INTERFACES_H
#define QX_TESTS_ADDRESSES_INTERFACES_H

#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qx_vosk.h"
#include "support/interpose.h"

namespace interfaces {

using platform::FakeInterface;

inline FakeInterface one(const std::string &name, const std::string &address, int flags) {
  FakeInterface made;
  made.name = name;
  made.address = address;
  made.flags = flags;
  return made;
}
inline FakeInterface up(const std::string &name, const std::string &address) {
  return one(name, address, IFF_UP);
}
inline FakeInterface down(const std::string &name, const std::string &address) {
  return one(name, address, 0);
}
inline FakeInterface loopback(const std::string &address, const std::string &name = "lo") {
  return one(name, address, IFF_UP | IFF_LOOPBACK);
}
inline FakeInterface loopback_down(const std::string &address) {
  return one("lo", address, IFF_LOOPBACK);
}
inline FakeInterface of_family(int family, const std::string &name) {
  FakeInterface made = one(name, "10.99.99.99", IFF_UP);
  made.family = family;
  return made;
}
inline FakeInterface vanished(const std::string &name, int error) {
  FakeInterface made = up(name, "10.88.88.88");
  made.flags_error = error;
  return made;
}

// eth0 with 10.0.0.1, eth1 with 10.0.0.2 and so on.
inline std::vector<FakeInterface> many(int count) {
  std::vector<FakeInterface> made;
  for (int i = 0; i < count; ++i) made.push_back(up("eth" + std::to_string(i), "10.0.0." + std::to_string(i + 1)));
  return made;
}

// One address as text with zeros up to the end of its slot.
inline std::string slot(const std::string &text) {
  std::string bytes = text;
  bytes.resize(VK_ADDRESS_SLOT, '\0');
  return bytes;
}
inline std::string slots(const std::vector<std::string> &texts, std::size_t count) {
  std::string bytes;
  for (const std::string &text : texts) bytes += slot(text);
  bytes.resize(count * VK_ADDRESS_SLOT, '\0');
  return bytes;
}

// The calls leave a socket each, on purpose; the tests do not keep them.
inline void close_left_open(const platform::Calls &calls) {
  for (const auto &left : calls.left_open()) close(left.first);
}

}  // namespace interfaces

#endif
