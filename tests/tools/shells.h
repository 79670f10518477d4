// Runs scripts in the shells that users have, with the built tools in their path.
#ifndef TESTS_TOOLS_SHELLS_H
#define TESTS_TOOLS_SHELLS_H

#include <map>
#include <string>
#include <vector>

namespace shells {

struct result {
  int status = -1;  // exit status; 1000 + n when killed by signal n
  std::string out, err;
};

// "dash", "bash" and "zsh".
extern const std::vector<std::string> kAll;

// What is missing of them; empty where all are there.
std::string missing();

// Runs the script, a file of the name "script.sh" in a directory of its own, which it also finds in $D. A script that
// runs longer than a minute is killed.
result run(const std::string &shell, const std::string &script,
           const std::map<std::string, std::string> &variables = {});

}  // namespace shells

#endif
