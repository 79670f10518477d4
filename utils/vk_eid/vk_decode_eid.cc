// Taking identifiers apart.
#include <arpa/inet.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"

namespace vk {
namespace {

// What both calls take and give. The name of the names' parameter is the one thing in which their pointer tests differ.
struct decoding {
  int trace_on;
  const char *trace_path;
  const tracer &trace;
  const char *eid;
  unsigned int *on_node, *version_id, *location_mask;
  char *names;
  const char *names_parameter;
  int name_slots;
  unsigned int *templ_id;
  timeval *timestamp;
  void *ip_addr;
  unsigned int *ipv6_flag;
};

// The fields, cut out of the identifier, and the address as decoded.
struct fields {
  char header[kHeaderDigits + 1] = {};
  char location[kLocationDigits + 1] = {};
  char time[kTimeDigits + 1] = {};
  char address[kAddressDigits + 1] = {};
  char address_type = '\0';
  std::uint32_t words[4] = {};
};

// Never looks beyond the first byte that cannot belong to an identifier; only the trace shows more of such a text, as
// much as an entry keeps.
int test_identifier(const decoding &d) noexcept {
  if (!is_set(d.eid)) {
    VK_TRACE(d.trace, "Detected invalid VOSK Error ID\nReturning %s(%d) to the caller\n", vosk_name(VOSK_INV_PARAM2),
             VOSK_INV_PARAM2);
    return VOSK_INV_PARAM2;
  }
  if (strnlen(d.eid, kEidDigits + 1) != kEidDigits) {
    VK_TRACE(d.trace, "VOSK Error ID \"%.254s\"is not correct size\nReturning %s(%d) to the caller\n", d.eid,
             vosk_name(VOSK_INV_PARAM2), VOSK_INV_PARAM2);
    return VOSK_INV_PARAM2;
  }
  return VOSK_SUCCESS;
}

int test_pointers(const decoding &d) noexcept {
  const struct {
    const void *pointer;
    const char *name;
    int code;
  } required[] = {{d.version_id, "version_id", VOSK_INV_PARAM3}, {d.location_mask, "location_mask", VOSK_INV_PARAM4},
                  {d.names, d.names_parameter, VOSK_INV_PARAM5}, {d.templ_id, "err_templ_label", VOSK_INV_PARAM6},
                  {d.timestamp, "timestamp", VOSK_INV_PARAM7},   {d.ip_addr, "ip_addr", VOSK_INV_PARAM8},
                  {d.ipv6_flag, "ipv6_flag", VOSK_INV_PARAM9}};
  for (const auto &row : required) {
    if (row.pointer != nullptr) continue;
    VK_TRACE(d.trace, "Detected invalid pointer for %s\nReturning %s(%d) to the caller\n", row.name,
             vosk_name(row.code), row.code);
    return row.code;
  }
  return VOSK_SUCCESS;
}

fields cut(const char *eid) noexcept {
  fields f;
  std::memcpy(f.header, eid, kHeaderDigits);
  std::memcpy(f.location, eid + kLocationAt, kLocationDigits);
  std::memcpy(f.time, eid + kTimeAt, kTimeDigits);
  std::memcpy(f.address, eid + kAddressAt, kAddressDigits);
  f.address_type = eid[kAddressTypeAt];
  return f;
}

// Hands the address out and writes its text.
int decode_address(const decoding &d, fields &f, char (&text)[VK_ADDRESS_SLOT]) noexcept {
  const int result = vk_conv_ipaddr(d.trace_on, d.trace_path, f.address, f.address_type, f.words);
  if (result != VOSK_SUCCESS) return result;
  const bool ipv4 = f.address_type == '.';
  std::memcpy(d.ip_addr, f.words, ipv4 ? sizeof f.words[0] : sizeof f.words);
  (void)inet_ntop(ipv4 ? AF_INET : AF_INET6, f.words, text, sizeof text);
  *d.ipv6_flag = ipv4 ? 0 : 1;
  return VOSK_SUCCESS;
}

// Whether this node has the address now.
void test_node(const decoding &d, const char *text) noexcept {
  *d.on_node = 0;
  char list[VK_ADDRESS_MAX + 1][VK_ADDRESS_SLOT] = {};
  unsigned int count = 0;
  (void)vk_obtain_ipaddrs(d.trace_on, d.trace_path, list[0], 0, &count);
  if (count != 0 && vk_test_ipaddr(d.trace_on, d.trace_path, text, list[0]) == VOSK_SUCCESS) *d.on_node = 1;
}

// Decodes time and address, which every identifier has.
int decode_when_and_where(const decoding &d, fields &f) noexcept {
  int result = vk_conv_base_64_time(d.trace_on, d.trace_path, f.time, d.timestamp);
  if (result != VOSK_SUCCESS) return result;
  char text[VK_ADDRESS_SLOT] = {};
  result = decode_address(d, f, text);
  if (result == VOSK_SUCCESS) test_node(d, text);
  return result;
}

// An i-node means something on its own node only.
int decode_stack(const decoding &d, const fields &f) noexcept {
  if (*d.on_node != 1) return VOSK_SUCCESS;
  return vk_conv_base_64_inode(d.trace_on, d.trace_path, kStackDirectory, f.location, d.names, d.name_slots);
}

int unknown_location(const decoding &d) noexcept {
  VK_TRACE(d.trace, "Unknown location type 0x%x returned from vk_conv_base_64_hdr\nReturning %s(%d) to caller\n",
           *d.location_mask, vosk_name(VOSK_FAILURE), VOSK_FAILURE);
  return VOSK_FAILURE;
}

// A missing stack file is no failure of the decoding: it is the result, after the summary.
constexpr bool ends_decoding(int result) noexcept {
  return result != VOSK_SUCCESS && result != VOSK_FILE_MISSING;
}

const char *time_text(const timeval &timestamp) noexcept {
  const char *text = ctime(&timestamp.tv_sec);
  return text != nullptr ? text : "(no date)\n";  // six digits of seconds always have a date, but ctime may fail
}

// The first name, of which the slot's last byte may never have been written.
struct name_copy {
  char text[kNameSlot] = {};
  name_copy(const char *name, const char *none) noexcept {
    std::memcpy(text, name, strnlen(name, kNameSlot - 1));
    if (text[0] == '\0') std::memcpy(text, none, std::strlen(none));
  }
};

}  // namespace
}  // namespace vk

int vk_decode_eid(unsigned int trace_on, const char *trace_path, const char *eid, unsigned int *on_node,
                  unsigned int *version_id, unsigned int *location_mask, char *stack_file,
                  unsigned int *err_templ_label, struct timeval *timestamp, void *ip_addr, unsigned int *ipv6_flag) {
  const vk::tracer trace(static_cast<int>(trace_on), trace_path, "vk_decode_eid");
  const vk::decoding d{static_cast<int>(trace_on),
                       trace_path,
                       trace,
                       eid,
                       on_node,
                       version_id,
                       location_mask,
                       stack_file,
                       "stack_file",
                       1,
                       err_templ_label,
                       timestamp,
                       ip_addr,
                       ipv6_flag};
  int result = vk::test_identifier(d);
  if (result == VOSK_SUCCESS) result = vk::test_pointers(d);
  if (result != VOSK_SUCCESS) return result;

  vk::fields f = vk::cut(eid);
  result = vk::vk_conv_base_64_hdr(d.trace_on, trace_path, f.header, version_id, location_mask);
  if (result != VOSK_SUCCESS) return result;
  if (*version_id != 1) {
    VK_TRACE(trace, "VOSK Error ID is an unsupported version: 0x%x\nReturning %s(%d) to the caller\n", *version_id,
             vk::vosk_name(VOSK_UNSUPPORTED), VOSK_UNSUPPORTED);
    return VOSK_UNSUPPORTED;
  }
  result = vk::decode_when_and_where(d, f);
  if (result != VOSK_SUCCESS) return result;
  switch (*location_mask) {
    case VK_LOCATION_TEMPLATE:
      result = vk::vk_conv_base_64_templ(d.trace_on, trace_path, f.location, err_templ_label);
      break;
    case VK_LOCATION_STACK:
      result = vk::decode_stack(d, f);
      break;
    default:
      return vk::unknown_location(d);
  }
  if (vk::ends_decoding(result)) return result;
  if (trace.on())
    trace.write(
        "VOSK Error ID \"%s\" decodes into:\nVersion %d, Location 0x%x\nStack File %s, Template ID %d(0x%x)\n"
        "Timestamp %s\nIP Address 0x%lx%lx%lx%lx (%s type)\nReturn code %d",
        eid, vk::low32(*version_id), *location_mask, vk::name_copy(stack_file, "none").text,
        vk::low32(*err_templ_label), *err_templ_label, vk::time_text(*timestamp), std::uint64_t{f.words[0]},
        std::uint64_t{f.words[1]}, std::uint64_t{f.words[2]}, std::uint64_t{f.words[3]},
        *ipv6_flag != 0 ? "IPv6" : "IPv4", result);
  return result;
}

int vk_decode_eid_2(unsigned int trace_on, const char *trace_path, const char *eid, unsigned int *on_node,
                    unsigned int *version_id, unsigned int *location_mask, char *stack_file_list,
                    unsigned int list_size, unsigned int *err_templ_label, unsigned int *bsd_facility,
                    unsigned int *bsd_priority, struct timeval *timestamp, void *ip_addr, unsigned int *ipv6_flag) {
  const vk::tracer trace(static_cast<int>(trace_on), trace_path, "vk_decode_eid");
  const int name_slots = list_size > INT_MAX ? INT_MAX : static_cast<int>(list_size);
  const vk::decoding d{static_cast<int>(trace_on),
                       trace_path,
                       trace,
                       eid,
                       on_node,
                       version_id,
                       location_mask,
                       stack_file_list,
                       "stack_file_list",
                       name_slots,
                       err_templ_label,
                       timestamp,
                       ip_addr,
                       ipv6_flag};
  int result = vk::test_identifier(d);
  if (result == VOSK_SUCCESS) result = vk::test_pointers(d);
  if (result != VOSK_SUCCESS) return result;
  if (bsd_facility == nullptr || bsd_priority == nullptr) {
    VK_TRACE(
        trace,
        "Detected invalid pointer for bsd_priority (0x%x) or bsd_facility (0x%x)\nReturning %s(%d) to the caller\n",
        vk::low32_of_address(bsd_priority), vk::low32_of_address(bsd_facility), vk::vosk_name(VOSK_INV_PARAMCOMBO),
        VOSK_INV_PARAMCOMBO);
    return VOSK_INV_PARAMCOMBO;
  }

  vk::fields f = vk::cut(eid);
  result = vk::vk_conv_base_64_hdr(d.trace_on, trace_path, f.header, version_id, location_mask);
  if (result != VOSK_SUCCESS) return result;
  result = vk::decode_when_and_where(d, f);
  if (result != VOSK_SUCCESS) return result;
  switch (*location_mask) {
    case VK_LOCATION_TEMPLATE:
      result = vk::vk_conv_base_64_templ(d.trace_on, trace_path, f.location, err_templ_label);
      if (result != VOSK_SUCCESS) return result;
      break;
    case VK_LOCATION_STACK:
      result = vk::decode_stack(d, f);
      if (vk::ends_decoding(result)) return result;
      break;
    case VK_LOCATION_SYSLOG:  // good or bad, its result comes after the summary
      result = vk::vk_conv_base_64_selector(d.trace_on, trace_path, f.location, bsd_facility, bsd_priority);
      break;
    default:
      return vk::unknown_location(d);
  }
  const char *first_name = list_size != 0 ? stack_file_list : "";  // a list without slots has none
  if (trace.on())
    trace.write(
        "VOSK Error ID \"%s\" decodes into:\nVersion %d, Location 0x%x\n"
        "First Stack File %s, Template ID 0x%x Syslog Facility %d Priority %d\n"
        "Timestamp %s\nIP Address 0x%lx%lx%lx%lx (%s type)\nReturn code %d",
        eid, vk::low32(*version_id), *location_mask, vk::name_copy(first_name, "(none)").text, *err_templ_label,
        vk::low32(vk::facility_number(*bsd_facility)), vk::low32(*bsd_priority), vk::time_text(*timestamp),
        std::uint64_t{f.words[0]}, std::uint64_t{f.words[1]}, std::uint64_t{f.words[2]}, std::uint64_t{f.words[3]},
        *ipv6_flag != 0 ? "IPv6" : "IPv4", result);
  return result;
}
