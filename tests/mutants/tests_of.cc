#include "mutants/tests_of.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace mutants {
namespace {

// Folders below tests/ whose programs look at the library's surroundings or at the tests' own means.
constexpr const char *kElsewhere[] = {"abi", "build",    "demo",    "dev",    "examples", "install",
                                      "man", "messages", "mutants", "reader", "tools"};

std::string output_of(const std::string &command) {
  std::string out;
  const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  char bytes[65536];
  for (std::size_t n; (n = fread(bytes, 1, sizeof bytes, pipe.get())) != 0;) out.append(bytes, n);
  return out;
}

void take_properties(const nlohmann::json &properties, Program &program) {
  for (const auto &property : properties) {
    const auto &value = property.at("value");
    if (property.at("name") == "WORKING_DIRECTORY") program.directory = value;
    if (property.at("name") == "ENVIRONMENT") program.environment = value;
  }
}

bool looks_elsewhere(const std::string &directory) {
  for (const char *folder : kElsewhere) {
    const std::string end = std::string("/tests/") + folder;
    if (directory.size() >= end.size() && directory.compare(directory.size() - end.size(), end.size(), end) == 0)
      return true;
  }
  return false;
}

}  // namespace

std::vector<Test> tests_in(const std::string &build) {
  const auto listed = nlohmann::json::parse(output_of("ctest --test-dir '" + build + "' --show-only=json-v1"));
  std::vector<Test> out;
  for (const auto &entry : listed.at("tests")) {
    Test test{entry.at("name"), {}};
    if (entry.contains("command")) test.program.command = entry.at("command");  // not before it is built
    take_properties(entry.at("properties"), test.program);
    if (looks_elsewhere(test.program.directory)) continue;
    test.program.environment.push_back("GTEST_FAIL_FAST=1");
    out.push_back(test);
  }
  return out;
}

std::set<std::string> Reach::routine(const std::string &file, std::size_t line) const {
  auto next = tests_.upper_bound({file, line});
  if (next == tests_.begin()) return {};
  --next;
  return next->first.file == file ? next->second : std::set<std::string>();
}

std::set<std::string> Reach::whole_file(const std::string &file) const {
  std::set<std::string> out;
  for (auto at = tests_.lower_bound({file, 0}); at != tests_.end() && at->first.file == file; ++at)
    out.insert(at->second.begin(), at->second.end());
  return out;
}

std::map<std::size_t, Place> routines_of(const std::string &library, const std::string &tree) {
  std::map<std::size_t, Place> out;
  const std::string listing = output_of("nm --defined-only --line-numbers '" + library + "'");
  for (std::size_t begin = 0, end; (end = listing.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const std::string line = listing.substr(begin, end - begin);
    const std::size_t tab = line.find('\t'), colon = line.rfind(':');
    if (tab == std::string::npos || line.compare(tab + 1, tree.size(), tree) != 0) continue;
    const std::string file = line.substr(tab + 1 + tree.size() + 1, colon - tab - tree.size() - 2);
    out[std::stoul(line, nullptr, 16)] = {file, std::stoul(line.substr(colon + 1))};
  }
  return out;
}

}  // namespace mutants
