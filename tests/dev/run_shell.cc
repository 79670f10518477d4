#include "run_shell.h"

#include <regex.h>
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

// POSIX regular expressions: <regex> takes the compiler several times as long as the rest of a test.
std::vector<std::string> all_groups(const std::string &text, const std::string &expression) {
  regex_t compiled;
  if (regcomp(&compiled, expression.c_str(), REG_EXTENDED | REG_NEWLINE) != 0)
    throw std::runtime_error("not a regular expression: " + expression);
  std::vector<std::string> found;
  regmatch_t match[2];
  int flags = 0;
  for (const char *at = text.c_str(); regexec(&compiled, at, 2, match, flags) == 0 && match[0].rm_eo > 0;) {
    found.emplace_back(at + match[1].rm_so, at + match[1].rm_eo);
    flags = at[match[0].rm_eo - 1] == '\n' ? 0 : REG_NOTBOL;
    at += match[0].rm_eo;
  }
  regfree(&compiled);
  return found;
}

std::string first_group(const std::string &text, const std::string &expression) {
  const std::vector<std::string> found = all_groups(text, expression);
  return found.empty() ? "" : found.front();
}

}  // namespace vk::test
