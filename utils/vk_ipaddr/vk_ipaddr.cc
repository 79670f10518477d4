// The node's address as identifiers carry it.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_utils/base64.h"

namespace vk {
namespace {

constexpr std::size_t kWordDigits = 6, kWords = 4, kAddressDigits = kWordDigits * kWords;
constexpr char kIpv4 = '.', kIpv6 = '/';

// Digits and exactly three dots; anything else, the empty text too, counts as IPv6.
bool looks_like_ipv4(const char *text) noexcept {
  int dots = 0;
  for (; *text != '\0'; ++text) {
    if (*text == '.')
      ++dots;
    else if (*text < '0' || *text > '9')
      return false;
  }
  return dots == 3;
}

}  // namespace
}  // namespace vk

int vk_get_ipaddr(int trace_on, const char *trace_path, char *ip_addr, char *ipv6_flag) {
  const vk::tracer trace(trace_on, trace_path, "vk_get_ipaddr");
  if (ip_addr == nullptr) {
    VK_TRACE(trace, "Parameter ip_addr is set to NULL\nReturning %s(%d) to caller", vk::vosk_name(VOSK_INV_PARAM3),
             VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (ipv6_flag == nullptr) {
    VK_TRACE(trace, "Parameter ipv6_flag is set to NULL\nReturning %s(%d) to caller", vk::vosk_name(VOSK_INV_PARAM4),
             VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  char text[VK_ADDRESS_SLOT] = {};
  if (vk_obtain_ipaddrs(trace_on, trace_path, text, 1, nullptr) != VOSK_SUCCESS) {
    // Asked for whatever the trace switch says; without a trace file nothing comes of it.
    (void)vk_debug(trace_path, "vk_get_ipaddr", "Unable to query any net adapters - return %s(%d)",
                   vk::vosk_name(VOSK_FAILURE), VOSK_FAILURE);
    return VOSK_FAILURE;
  }
  // An address that does not parse leaves the words zero. IPv4 has one word; the digits of the others are '.'.
  const bool ipv4 = vk::looks_like_ipv4(text);
  std::uint32_t words[vk::kWords] = {};
  (void)inet_pton(ipv4 ? AF_INET : AF_INET6, text, words);
  char encoded[vk::kAddressDigits + 1] = {};
  for (std::size_t i = 0; i < vk::kWords; ++i) vk::put_field(words[i], encoded + i * vk::kWordDigits, vk::kWordDigits);
  VK_TRACE(trace, "Obtained IP address %s for this node, encoded as %s\n", text, encoded);
  std::memcpy(ip_addr, encoded, sizeof encoded);
  *ipv6_flag = ipv4 ? vk::kIpv4 : vk::kIpv6;
  return VOSK_SUCCESS;
}

int vk_conv_ipaddr(int trace_on, const char *trace_path, const char *ip_rep, char type, void *address) {
  const vk::tracer trace(trace_on, trace_path, "vk_conv_ipaddr");
  if (!vk::is_set(ip_rep)) {
    VK_TRACE(trace, "Invalid pointer or string provided for IP address - returning %s(%d) to caller",
             vk::vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (type != vk::kIpv4 && type != vk::kIpv6) {
    VK_TRACE(trace, "Invalid IP address type provided: '%c' - returning %s(%d) to caller", type,
             vk::vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  if (type == vk::kIpv4) {
    const auto word = static_cast<std::uint32_t>(vk_a64l(ip_rep));
    std::memcpy(address, &word, sizeof word);
    VK_TRACE(trace, "IP Address representation %s converted to 0x%lx", ip_rep, std::uint64_t{word});
    return VOSK_SUCCESS;
  }
  std::uint32_t words[vk::kWords] = {};
  const std::size_t length = strnlen(ip_rep, vk::kAddressDigits);  // digits that are missing are 0
  for (std::size_t i = 0; i < vk::kWords; ++i) {
    char digits[vk::kWordDigits + 1] = {};
    const std::size_t at = i * vk::kWordDigits;
    if (at < length) std::memcpy(digits, ip_rep + at, std::min(vk::kWordDigits, length - at));
    words[i] = static_cast<std::uint32_t>(vk_a64l(digits));
  }
  std::memcpy(address, words, sizeof words);
  // Only the first word is shown: three '%' are missing here on purpose.
  VK_TRACE(trace, "IP Address representation %s converted to 0x%lxlxlxlx", ip_rep, std::uint64_t{words[0]});
  return VOSK_SUCCESS;
}

int vk_test_ipaddr(int trace_on, const char *trace_path, const char *ip_addr, const char *ip_list) {
  const vk::tracer trace(trace_on, trace_path, "vk_test_ipaddr");
  if (!vk::is_set(ip_addr)) {
    VK_TRACE(trace, "Invalid string provided for ip_addr\nReturning %s(%d)", vk::vosk_name(VOSK_INV_PARAM3),
             VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (!vk::is_set(ip_list)) {
    VK_TRACE(trace, "Invalid array provided for ip_list\nReturning %s(%d)", vk::vosk_name(VOSK_INV_PARAM4),
             VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  int index = 0;
  for (const char *slot = ip_list; *slot != '\0'; slot += VK_ADDRESS_SLOT, ++index) {
    if (std::strncmp(slot, ip_addr, VK_ADDRESS_SLOT) == 0) {
      VK_TRACE(trace, "Match found for address %s at index %d\nReturning %s(%d)", ip_addr, index,
               vk::vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
      return VOSK_SUCCESS;
    }
  }
  VK_TRACE(trace,
           "No matches fo address %s found in %d known base addresses\nAssuming this address not on this node\n"
           "Returning %s(%d)",
           ip_addr, index, vk::vosk_name(VOSK_FAILURE), VOSK_FAILURE);
  return VOSK_FAILURE;
}
