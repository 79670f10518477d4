// A node of the demo's own: a mount namespace in which /var/adm/vosk and /dev/log are fresh, so that nothing outside is
// touched and nothing needs to be cleaned up.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace demo {

// The kernel does not let this process have namespaces or mounts of its own; what() says which.
struct namespaces_refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Moves this process into such a node, as root or through a user namespace in which it is root. The paths in
// `still_needed` stay visible where a fresh file system would cover them. Returns the directory that was covered.
std::string enter_private_node(const std::vector<std::string> &still_needed);

// Mounts a file system of `size` ("64k") on `directory`, which is made.
void mount_small_file_system(const std::string &directory, const char *size);

// What arrives at the node's /dev/log.
class log_socket {
 public:
  log_socket();
  log_socket(const log_socket &) = delete;
  log_socket &operator=(const log_socket &) = delete;
  ~log_socket();
  // The messages that have been sent so far and were not returned yet.
  std::vector<std::string> messages() const;

 private:
  int fd_;
};

}  // namespace demo
