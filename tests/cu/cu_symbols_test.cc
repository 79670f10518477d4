// What the built libqx_cu exports and needs.

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

using Names = std::set<std::string>;

// The last field of the lines of a command's output that hold `mark`.
Names last_fields(const std::string &command, const std::string &mark) {
  std::FILE *pipe = popen((command + " " QX_CU_FILE).c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  std::string output;
  for (int c; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  EXPECT_EQ(pclose(pipe), 0) << command;
  Names names;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);)
    if (line.find(mark) != std::string::npos) names.insert(line.substr(line.find_last_of(' ') + 1));
  return names;
}

TEST(BuiltLibrary, ExportsItsSixRoutinesAndNothingElse) {
  EXPECT_EQ(last_fields("nm -D --defined-only", " T "),
            (Names{"cu_get_error_1", "cu_get_proc_info_1", "cu_rel_error_args_1", "cu_set_error_1",
                   "cu_set_error_args_1", "cu_set_no_error_1"}));
  EXPECT_EQ(last_fields("nm -D --defined-only", "").size(), 6U);
}

TEST(BuiltLibrary, HasItsNameAndNeedsTheCLibraryOnly) {
  EXPECT_EQ(last_fields("readelf -d", "(SONAME)"), Names{"[libqx_cu.so.1]"});
  Names needed = last_fields("readelf -d", "(NEEDED)");
  needed.erase("[ld-linux-x86-64.so.2]");  // the C library's own part, where a thread's variables are looked up
  needed.erase("[ld-linux-aarch64.so.1]");
  EXPECT_EQ(needed, Names{"[libc.so.6]"});
}

TEST(BuiltLibrary, TakesNothingFromTheCxxRuntime) {
  for (const std::string &name : last_fields("nm -D --undefined-only", "")) {
    EXPECT_NE(name.substr(0, 2), "_Z") << name;
    EXPECT_EQ(name.find("cxa_throw"), std::string::npos) << name;
    EXPECT_EQ(name.find("gxx_personality"), std::string::npos) << name;
  }
}

}  // namespace
