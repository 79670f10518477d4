#include "node.h"

#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace vosk {

std::vector<node_address> addresses_of_this_node() {
  std::vector<node_address> addresses;
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) != 0) return addresses;
  for (const ifaddrs *i = list; i != nullptr; i = i->ifa_next) {
    if (i->ifa_addr == nullptr) continue;
    node_address address;
    if (i->ifa_addr->sa_family == AF_INET) {
      sockaddr_in in{};
      std::memcpy(&in, i->ifa_addr, sizeof in);
      std::memcpy(address.bytes.data(), &in.sin_addr, sizeof in.sin_addr);
    } else if (i->ifa_addr->sa_family == AF_INET6) {
      sockaddr_in6 in{};
      std::memcpy(&in, i->ifa_addr, sizeof in);
      std::memcpy(address.bytes.data(), &in.sin6_addr, sizeof in.sin6_addr);
      address.ipv6 = true;
    } else {
      continue;
    }
    addresses.push_back(address);
  }
  freeifaddrs(list);
  return addresses;
}

node_test test_node(const identifier &id, const std::vector<node_address> &addresses) {
  if (!id.address || id.address->none() || id.address->loopback()) return node_test::not_told;
  const bool here = std::find(addresses.begin(), addresses.end(), *id.address) != addresses.end();
  return here ? node_test::this_node : node_test::other_node;
}

}  // namespace vosk
