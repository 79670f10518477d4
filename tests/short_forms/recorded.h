// What the last recording left: in the only stack file, or with syslog().
#ifndef TESTS_SHORT_FORMS_RECORDED_H
#define TESTS_SHORT_FORMS_RECORDED_H

#include <functional>
#include <string>

#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace short_forms {

inline std::string stack() {
  const auto names = files::list(sandbox::kStacks);
  return names.size() == 1 ? files::read(std::string(sandbox::kStacks) + "/" + names[0]).value_or("") : "";
}

// The line that the body's recording sent.
inline std::string logged(const std::function<void()> &body) {
  platform::Calls calls;
  calls.during([&] { return body(), 0; });
  std::string line;
  for (const platform::Call &call : calls.calls())
    if (call.name == "syslog") line += call.data;
  return line;
}

// No environment of whoever runs the tests.
class NoEnvironment {
 protected:
  NoEnvironment() {
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG"})
      environment_.unset(name);
  }
  platform::Environment environment_;
};

}  // namespace short_forms

#endif
