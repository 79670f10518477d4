// One incident as a caller describes it.
#ifndef LIB_VK_PUSH_STACK_INCIDENT_H
#define LIB_VK_PUSH_STACK_INCIDENT_H

#include <bitset>

#include "qx_vosk.h"

namespace vk {

struct incident {
  vk_eid_t *fid;
  const char *assoc_fid;
  const char *resource_name;
  const char *product_name;
  const char *source_file;
  const char *source_version;
  int line;
  const char *detail_data;
  const char *detail_file;
  const char *catalogue_name;
  int message_set;
  int message_number;
  const char *default_message;
};

// What is missing or went wrong; the flags are named in the public header.
using incident_flags = std::bitset<VK_FLAG_COUNT>;

}  // namespace vk

#endif
