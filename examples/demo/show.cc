#include "show.h"

#include <arpa/inet.h>
#include <qx_vosk.h>
#include <syslog.h>

#include <cstdio>
#include <ctime>
#include <fstream>

namespace demo {

std::string visible(const std::string &text) {
  std::string shown;
  for (const char c : text) {
    if ((c < ' ' && c >= 0 && c != '\t') || c == 0x7f) {
      shown += '^';
      shown += static_cast<char>(c ^ 0x40);
    } else {
      shown += c;
    }
  }
  return shown;
}

std::vector<noted_record> noted_records(const std::string &directory) {
  std::vector<noted_record> records;
  std::ifstream list(directory + "/identifiers");
  noted_record record;
  while (list >> record.what >> record.identifier) records.push_back(record);
  return records;
}

std::string show_decoded(const noted_record &record) {
  unsigned int on_node = 0, version = 0, location = 0, label = 0, facility = 0, priority = 0, is_ipv6 = 0;
  char names[4][256] = {};
  timeval when{};
  unsigned char address[16] = {};
  const int result = vk_decode_eid_2(0, nullptr, record.identifier.c_str(), &on_node, &version, &location, names[0],
                                     std::size(names), &label, &facility, &priority, &when, address, &is_ipv6);
  std::printf("  %s  (%s)\n", record.identifier.c_str(), record.what.c_str());
  if (result != VOSK_SUCCESS) {
    std::printf("    vk_decode_eid_2 gave %d\n", result);
    return "";
  }
  char text[INET6_ADDRSTRLEN] = "";
  (void)inet_ntop(is_ipv6 != 0 ? AF_INET6 : AF_INET, address, text, sizeof text);
  char clock[32] = "";
  tm parts{};
  (void)std::strftime(clock, sizeof clock, "%F %T", localtime_r(&when.tv_sec, &parts));
  std::printf("    made %s.%06ld on the node %s, %s one\n", clock, static_cast<long>(when.tv_usec), text,
              on_node != 0 ? "this" : "another");
  if (location == VK_LOCATION_SYSLOG) {
    std::printf("    in the System Log, facility %s, priority %u\n", facility == LOG_DAEMON ? "daemon" : "other",
                priority);
    return "";
  }
  std::printf("    in the stack file %s\n", names[0]);
  return names[0];
}

void show_file(const std::string &path, int limit) {
  std::ifstream file(path);
  int lines = 0;
  for (std::string line; std::getline(file, line);) {
    line.erase(line.find_last_not_of('\0') + 1);
    if (!line.empty() && ++lines <= limit) std::printf("  | %s\n", visible(line).c_str());
  }
  if (lines > limit) std::printf("  | ... and %d lines more\n", lines - limit);
}

}  // namespace demo
