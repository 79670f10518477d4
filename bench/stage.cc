#include "stage.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "qx_vosk.h"

namespace bench {

std::string set_stage() {
  for (const char *directory : {kStacks, kDumps}) std::filesystem::create_directories(directory);
  if (vk_init_1(VK_STACK_CREAT) != VK_SUCCESS) {
    std::fprintf(stderr, "qx_bench: no VOSK Environment could be established\n");
    std::exit(1);
  }
  return std::getenv("VOSKSTACK");
}

drain::drain(const char *path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  (void)unlink(path);
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd == -1 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    std::perror(path);
    std::exit(1);
  }
  reader_ = fork();
  if (reader_ == 0) {
    char dropped[8192];
    while (recv(fd, dropped, sizeof dropped, 0) >= 0) continue;
    _exit(0);
  }
  (void)close(fd);
}

drain::~drain() {
  (void)kill(reader_, SIGKILL);
  (void)waitpid(reader_, nullptr, 0);
}

}  // namespace bench
