// What the kernel says of the processes above this one.
#ifndef TOOLS_VOSK_PROCESS_H
#define TOOLS_VOSK_PROCESS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace vosk {

struct process {
  pid_t id = 0, parent = 0;
  // Where the program and its arguments lie: a process that forked without starting a program has those of its parent,
  // and the next program gets others. Zero where this user may not know.
  struct image {
    unsigned long long code = 0, stack = 0, data = 0, arguments = 0, environment = 0;
    bool operator==(const image &) const = default;
  } image;
};

std::optional<process> find_process(pid_t id);

// True if `ancestor` is `id` itself or a process above it.
bool is_ancestor(pid_t ancestor, pid_t id);

// True if `id` was forked from `other` and still runs its program: a subshell.
bool is_copy_of(const process &id, const process &other);

// True if the process runs a shell for POSIX scripts.
bool is_shell(pid_t id);

std::vector<std::string> command_line(pid_t id);

// The base name of the process's command name; never empty, without slashes and control characters.
std::string command_name(pid_t id);

// The base name of the script that the process runs; nothing where it runs none.
std::optional<std::string> script_name(pid_t id);

// `text` with '_' for each slash and control character; never empty.
std::string as_process_name(const std::string &text);

bool has_control_characters(const std::string &text);

}  // namespace vosk

#endif
