/*
 * A plain C11 program that uses both roads of the library: prints the identifier of each record and what it decodes to.
 */
#include <qx_cu.h>
#include <qx_vosk.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static int decoded(const char *eid) {
  unsigned int on_node, version, location, templ, facility, priority, ipv6;
  struct timeval time;
  char name[256] = "";
  unsigned char address[16];
  int result = vk_decode_eid_2(0, NULL, eid, &on_node, &version, &location, name, 1, &templ, &facility, &priority,
                               &time, address, &ipv6);
  if (result != 0) return result;
  if (location == VK_LOCATION_STACK)
    printf("stack %s\n", name);
  else if (location == VK_LOCATION_SYSLOG)
    printf("log %u %u\n", facility, priority);
  return 0;
}

int main(void) {
  static const vk_syslog_field_t fields[] = {{4, 1, 2, "Error number", 1}, {5, 1, 3, "Device", 2}};
  static const vk_syslog_tmpl_t message = {0, "Write failed", 1, 1, "The device is full", 2, fields};
  static const char data[9] = {28, 0, 0, 0, 's', 'd', 'a', '1', '\0'};
  vk_eid_t first = "", second = "";
  cu_error_t error;
  char text[946];

  if (vk_init_1(VK_STACK_CREAT) != VK_SUCCESS) return 1;
  if (vk_test_stack_1() != VK_SUCCESS) return 2;
  if (vk_push_stack_1(&first, NULL, "both_roads", "tests", __FILE__, "1.0", __LINE__, 0, "sda1", NULL, "my.cat", 1, 1,
                      "%s is full (%d)", "sda1", 28) != VK_SUCCESS)
    return 3;
  if (vk_mk_syslog_msg_1(&message, data, sizeof data, text, sizeof text, (nl_catd)-1) != 946) return 4;
  if (vk_log_error_1(&second, first, "both_roads", "tests", __FILE__, "1.0", __LINE__, 0, VOSK_ERROR, UINT32_C(0x2A),
                     data, (int64_t)sizeof data, NULL, "%s", text) != VK_SUCCESS)
    return 5;
  if (cu_get_error_1(&error) != 0) return 6;
  if (vk_display_fid_main_1(first, 0) != 0 || vk_display_fid_main_1(second, 0) != 0) return 7;
  if (strlen(first) != VK_EID_SIZE - 1 || strlen(second) != sizeof(vk_eid_t) - 1) return 8;
  return decoded(first) == 0 && decoded(second) == 0 ? 0 : 9;
}
