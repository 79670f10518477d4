// Shell scripts that call the built tools, run as a user would run them.
#ifndef TESTS_TOOLS_SCRIPTS_H
#define TESTS_TOOLS_SCRIPTS_H

#include <string>

#include "support/files.h"
#include "tools/tool.h"

namespace scripts {

// Runs `script` with a shell, in a directory of its own, the tools in its PATH. Its outputs are files: what processes
// that stay write later is not waited for.
class script {
 public:
  tool::result run(const std::string &text, const std::string &shell = "sh");

  // A file that the script, or a process that it left, wrote; waits until it has `lines` lines.
  std::string file(const std::string &name, int lines = 1) const;

  const files::TemporaryDirectory &directory() const { return directory_; }

 private:
  files::TemporaryDirectory directory_;
};

// Gives the shell an environment of its own; a first line for a script that records.
inline const std::string kWithStack = "eval \"$(vosk env create --name job $$)\"\n";

// The records of all stacks.
std::vector<tool::json> records();

}  // namespace scripts

#endif
