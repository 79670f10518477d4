// Installed set-uid by a test: says what the library makes of its environment where privileges are raised.
#include <qx_vosk.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main() {
  char path[4096] = {};
  setenv("VOSKPID", std::to_string(getpid()).c_str(), 1);
  vk_eid_t fid = {};
  const int trace = vk_is_debug_file_set(path);
  const int push = vk_push_stack_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, "detail", nullptr, "c", 1, 1, "message");
  std::printf("secure %lu trace %d push %d\n", getauxval(AT_SECURE), trace, push);
  std::fflush(stdout);
  _exit(0);  // a leak checker could not look into a process with raised privileges, and would say so
}
