#include "environment_values.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "include/qx_vosk.h"
#include "library_error.h"
#include "process.h"
#include "reader/safe_file.h"

namespace vosk {

namespace {

constexpr int kStacksDisabled = 42;

[[noreturn]] void fail() {
  throw std::runtime_error("cannot read what the library prints: " + error_text(errno));
}

// Standard output goes into a pipe as long as this object lives: no limit on files keeps the library from printing, and
// what does not fit is more than it prints.
class captured_output {
 public:
  captured_output() : kept_(fcntl(1, F_DUPFD_CLOEXEC, 3)) {
    int ends[2];
    (void)std::fflush(stdout);
    if (!kept_.valid() || pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) fail();
    reading_ = unique_fd(ends[0]);
    const unique_fd writing(ends[1]);
    if (dup2(writing.get(), 1) < 0) fail();
  }
  captured_output(const captured_output &) = delete;
  captured_output &operator=(const captured_output &) = delete;
  ~captured_output() { restore(); }

  std::string take() {
    const bool flushed = std::fflush(stdout) == 0;
    restore();
    if (!flushed) {
      __fpurge(stdout);  // what is left is not for the shell
      fail();
    }
    std::string text;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = read(reading_.get(), buffer, sizeof buffer)) > 0)
      text.append(buffer, static_cast<std::size_t>(size));
    if (size < 0) fail();
    return text;
  }

 private:
  void restore() {
    if (!kept_.valid()) return;
    (void)dup2(kept_.get(), 1);
    kept_ = unique_fd();
  }

  unique_fd kept_, reading_;
};

std::vector<std::string> expected_names(int option_code, int code) {
  if (option_code == VK_LOG || code == kStacksDisabled) return {"VOSKADDR", "VOSKPNAME"};
  if (code == VK_INHERIT_SUCCESS) return {"VOSKPID", "VOSKPNAME"};
  return {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
}

bool gives_variables(int code) {
  return code == VK_SUCCESS || code == VK_INHERIT_SUCCESS || code == kStacksDisabled;
}

void take_variables(const std::string &printed, std::vector<std::string> expected, environment_values &values) {
  std::istringstream lines(printed);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    const auto name = std::find(expected.begin(), expected.end(), line.substr(0, equals));
    if (equals == std::string::npos || name == expected.end() || has_control_characters(line))
      throw std::runtime_error("the library printed something else than the variables");
    values.variables.emplace_back(*name, line.substr(equals + 1));
    expected.erase(name);
  }
  if (!expected.empty()) throw std::runtime_error("the library printed no " + expected.front());
}

std::string quoted(const std::string &value) {
  std::string text = "'";
  for (const char c : value) {
    if (c == '\'')
      text += "'\\''";
    else
      text += c;
  }
  return text + "'";
}

}  // namespace

environment_values values_for(int option_code, const std::string &name, int process) {
  constexpr int kDisplay = 1;
  environment_values values;
  captured_output captured;
  values.code = vk_init_main_1(option_code, name.c_str(), process, kDisplay);
  if (values.code != VK_SUCCESS) values.text = library_text(values.code);
  const std::string printed = captured.take();
  if (gives_variables(values.code)) take_variables(printed, expected_names(option_code, values.code), values);
  return values;
}

std::string export_commands(const environment_values &values) {
  std::string commands;
  for (const auto &[name, value] : values.variables) commands += "export " + name + "=" + quoted(value) + "\n";
  return commands;
}

}  // namespace vosk
