// What the library needs of the node, and what containers change.

#include <fcntl.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "findings.h"
#include "include/qx_vosk.h"
#include "library_error.h"
#include "reader/node.h"
#include "reader/processes.h"
#include "reader/safe_file.h"
#include "recording_calls.h"

namespace vosk {

namespace {

// The i-node of the node's own PID namespace.
constexpr ino_t kFirstPidNamespace = 0xEFFFFFFC;

std::size_t conversions_in(const char *text) {
  return static_cast<std::size_t>(std::count(text, text + std::strlen(text), '%'));
}

void examine_catalogue(findings &found) {
  constexpr char kReinstall[] = "install the package of libqx_vosk anew, or correct NLSPATH";
  errno = 0;
  nl_catd catalogue = catopen("vosk.cat", NL_CAT_LOCALE);
  if (catalogue == reinterpret_cast<nl_catd>(-1)) {
    const int error = errno;
    if (error == ENOENT) return;  // the texts are in the library, too
    std::string text = "the message catalogue vosk.cat cannot be used";
    if (error != 0) text += ": " + error_text(error);
    found.fault("catalogue_unusable", text, kReinstall);
    return;
  }
  std::size_t wrong = 0;
  for (int i = 1; i < VK_MESSAGE_COUNT; ++i) {
    const char *const text = catgets(catalogue, 1, i, "");
    if (*text == '\0' || conversions_in(text) != conversions_in(vk_mesgtbl_vk_lib[i])) ++wrong;
  }
  (void)catclose(catalogue);
  if (wrong > 0)
    found.fault("catalogue_wrong",
                "the message catalogue vosk.cat lacks or changes " + std::to_string(wrong) + " messages", kReinstall);
}

void examine_addresses(findings &found) {
  bool any = false, usable = false;
  for (const node_address &address : addresses_of_this_node()) {
    if (address.ipv6) continue;
    any = true;
    usable |= !address.loopback();
  }
  if (!any)
    found.fault("no_address", "this node has no IPv4 address: no environment can be made, and there are no identifiers",
                "give its loopback interface 127.0.0.1: ip address add 127.0.0.1/8 dev lo");
  else if (!usable)
    found.note("only_loopback", "this node has only a loopback address: identifiers do not tell it from others",
               "give it a network before services start");
}

void examine_processes(findings &found) {
  if (!start_of_process(getpid())) {
    found.fault("proc_missing", "/proc does not show this process: no process name can be found",
                "mount it: mount -t proc proc /proc");
    return;
  }
  struct stat st {};
  if (stat("/proc/self/ns/pid", &st) == 0 && st.st_ino != kFirstPidNamespace)
    found.note("container", "process ids here are those of a container: the node's tools see others",
               "on a shared volume give each container its own directory or process names");
}

}  // namespace

void examine_node(findings &found) {
  if (!system_log_listens())
    found.fault("no_system_log", "nobody listens on /dev/log: records in the System Log are lost",
                "start the daemon; in a container mount the node's /dev/log");
  examine_processes(found);
  examine_addresses(found);
  examine_catalogue(found);
}

}  // namespace vosk
