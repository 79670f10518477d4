// Tools whose calls of the platform fail.
#ifndef TESTS_TOOLS_FAULTS_H
#define TESTS_TOOLS_FAULTS_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tools/tool.h"

namespace faults {

// What fails: lines of tests/tools/faults.c.
inline tool::options with(const std::string &failing, std::map<std::string, std::string> environment = {}) {
  environment["LD_PRELOAD"] = QX_FAULTS_LIBRARY;
  environment["QX_FAULTS"] = failing;
  environment["ASAN_OPTIONS"] = "verify_asan_link_order=0:detect_leaks=0";
  return tool::options::with(std::move(environment));
}

// A run, what fails in it, and what its user then sees.
struct row {
  std::string what;
  std::string command;  // its words
  std::string failing;
  int status;
  std::string says;  // a part of its outputs
};

inline void expect(const row &r, std::map<std::string, std::string> environment = {}) {
  SCOPED_TRACE(r.what);
  std::vector<std::string> arguments{"vosk"};
  std::istringstream words(r.command);
  for (std::string word; words >> word;) arguments.push_back(word);
  const tool::result seen = tool::run(arguments, with(r.failing, std::move(environment)));
  EXPECT_EQ(seen.status, r.status) << seen.out << seen.err;
  EXPECT_THAT(seen.out + seen.err, testing::HasSubstr(r.says));
}

}  // namespace faults

#endif
