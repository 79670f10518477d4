// What an examination of the node and the environment found.
#ifndef TOOLS_VOSK_FINDINGS_H
#define TOOLS_VOSK_FINDINGS_H

#include <string>
#include <vector>

namespace vosk {

enum class severity {
  fault,  // recordings fail, or cannot be found again
  note,   // works, and may surprise
};

struct finding {
  severity how;
  std::string name;    // for programs
  std::string text;    // may hold what others wrote
  std::string remedy;  // what to do
};

struct findings {
  std::vector<finding> all;

  void fault(const char *name, std::string text, std::string remedy) {
    all.push_back({severity::fault, name, std::move(text), std::move(remedy)});
  }
  void note(const char *name, std::string text, std::string remedy) {
    all.push_back({severity::note, name, std::move(text), std::move(remedy)});
  }
};

// The variables, and the processes that they name.
void examine_environment(findings &found);

// The stack that VOSKSTACK names, and the times of all stacks.
void examine_stacks(findings &found);

// The directories and the file systems that they lie in.
void examine_directories(findings &found);

// What the library needs of the node: System Log, addresses, catalogue, /proc; and what containers change.
void examine_node(findings &found);

}  // namespace vosk

#endif
