// The environment variables, and the processes that they name.

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "findings.h"
#include "include/qx_vosk.h"
#include "owner.h"
#include "process.h"
#include "reader/collection.h"
#include "reader/identifier.h"
#include "reader/node.h"
#include "reader/number.h"
#include "reader/originator.h"
#include "reader/processes.h"

namespace vosk {

namespace {

constexpr char kMakeAnew[] = "unset VOSKSTACK, VOSKORIG, VOSKPID, VOSKADDR and VOSKPNAME, and let it be created anew";

// The value; empty where it is not set, which is the same to the library.
std::string value_of(const char *name) {
  const char *const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::optional<int> process_id(const std::string &text) {
  int id = 0;
  if (!parse_number(text, id) || id <= 0) return std::nullopt;
  return id;
}

void examine_set(findings &found) {
  std::string missing, present;
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) {
    std::string &list = value_of(name).empty() ? missing : present;
    list += (list.empty() ? "" : ", ") + std::string(name);
  }
  const bool stack = !value_of("VOSKSTACK").empty();
  if (stack && !missing.empty())
    found.fault("variable_missing", "VOSKSTACK is set without " + missing, kMakeAnew);
  else if (!stack && (!value_of("VOSKORIG").empty() || !value_of("VOSKPID").empty()))
    found.fault("variable_missing", present + " without VOSKSTACK", kMakeAnew);
  else if (present.empty())
    found.note("no_environment", "this process has no environment", "eval \"$(vosk env create $$)\" gives a shell one");
}

void examine_address(findings &found) {
  const std::string address = value_of("VOSKADDR");
  if (address.empty()) return;
  // An identifier with this address and a time: what the tools would make of it.
  const auto id = decode_identifier("7......0........." + address);
  if (!id || !id->address) {
    found.fault("address_invalid", "VOSKADDR is no address: " + address, kMakeAnew);
    return;
  }
  if (test_node(*id, addresses_of_this_node()) != node_test::other_node) return;
  found.fault("address_of_other_node", "VOSKADDR is " + id->address->text() + ", which is no address of this node",
              "the environment comes from another node or container, or the address changed: let it be created anew");
}

// A process with a name that is no file name cannot copy detail files.
void examine_name(findings &found) {
  const std::string name = value_of("VOSKPNAME");
  if (name.find('/') != std::string::npos || has_control_characters(name))
    found.fault("process_name_invalid", "VOSKPNAME has a slash or a control character: " + name,
                "detail files cannot be copied under it: give a plain name to vosk env create --name");
}

void examine_processes(findings &found) {
  for (const char *name : {"VOSKPID", "VOSKORIG"}) {
    const std::string value = value_of(name);
    if (!value.empty() && !process_id(value))
      found.fault(*(name + 4) == 'P' ? "owner_invalid" : "originator_invalid",
                  std::string(name) + " is no process id: " + value, kMakeAnew);
  }
  const pid_t owner = owner_of_environment();
  const std::string stack = value_of("VOSKSTACK");
  if (stack.empty() || owner == 0) return;
  const std::string id = "process " + std::to_string(owner);
  // Processes of others can be there and not be seen.
  if (kill(owner, 0) != 0 && errno == ESRCH)
    found.fault("owner_gone", id + ", which owns the environment, is gone",
                "eval \"$(vosk env inherit $$)\" makes a shell the owner; a program calls vk_init_1");
  else if (start_of_process(owner) && !is_ancestor(owner, getppid()))
    found.fault("owner_unrelated", id + ", which owns the environment, is no ancestor of this one",
                "the id is used again, or from another PID namespace: let the environment be created anew");
}

void examine_switches(findings &found) {
  if (std::getenv("VOSKSDISABLE") != nullptr)
    found.note("stacks_disabled", "VOSKSDISABLE is set: no Error Stack is created or inherited",
               "unset it unless only the System Log is wanted");
  const char *const reclaim = std::getenv("VOSKRECLAIM");
  if (reclaim != nullptr && std::string(reclaim) != "whole")
    found.fault("reclaim_unknown", "VOSKRECLAIM has no meaning: " + std::string(reclaim), "set it to \"whole\"");
  char path[4096] = "";
  const int debug = vk_is_debug_file_set(path);
  const std::string file = value_of("VOSKDEBUG");
  std::string directory = file.substr(0, file.rfind('/') + 1);
  if (directory.empty()) directory = ".";
  if (debug < 0 || (debug == 1 && access(path, R_OK | W_OK) != 0) ||
      (debug == 2 && access(directory.c_str(), W_OK | X_OK) != 0))
    found.fault("trace_unusable", "VOSKDEBUG names a file that cannot be written or created: " + file,
                "name a file in a directory that can be written, or unset it");
}

}  // namespace

void examine_environment(findings &found) {
  examine_set(found);
  examine_processes(found);
  examine_address(found);
  examine_name(found);
  examine_switches(found);
}

}  // namespace vosk
