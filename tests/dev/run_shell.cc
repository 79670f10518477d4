#include "run_shell.h"

#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>

namespace vk::test {

shell_result run_shell(const std::string &directory, const std::string &command) {
  const std::string line = "cd '" + directory + "' && exec 2>&1 </dev/null && { " + command + "\n}";
  std::FILE *pipe = popen(line.c_str(), "re");
  if (pipe == nullptr) throw std::runtime_error("popen failed");
  shell_result result;
  char buffer[4096];
  for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.output.append(buffer, n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace vk::test
