// vosk verify: damage only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/files.h"
#include "tools/tool.h"

namespace {

class Verify : public testing::Test {
 protected:
  files::TemporaryDirectory dir_;
};

}  // namespace

TEST_F(Verify, SaysNothingOfSoundFiles) {
  tool::write_stack(dir_ / "a", builder::never_wrapped_file());
  tool::write_stack(dir_ / "b", builder::wrapped_file());
  const tool::result r = tool::run({"vosk", "verify", dir_.path()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out + r.err, "");
}

TEST_F(Verify, NamesFileOffsetFieldValueAndWhatIsAllowed) {
  builder::bytes file = builder::never_wrapped_file();
  file[20] = 9;
  file[24] ^= 1;
  tool::write_stack(dir_ / "a", file);
  const tool::result r = tool::run({"vosk", "verify", dir_ / "a"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "-- " + (dir_ / "a") + ": damage at offset 20: wrap indicator: 9; allowed: 0 or 1\n" +  //
                       "-- " + (dir_ / "a") + ": damage at offset 24: length: 201; allowed: 200\n");
  const tool::result json = tool::run({"vosk", "verify", "--json", dir_ / "a"});
  EXPECT_EQ(json.status, 3);
  EXPECT_EQ(json.out, R"({"type":"damage","schema":1,"file":")" + (dir_ / "a") +
                          R"(","offset":20,"field":"wrap indicator","value":"9","allowed":"0 or 1"})"
                          "\n"
                          R"({"type":"damage","schema":1,"file":")" +
                          (dir_ / "a") +
                          R"(","offset":24,"field":"length","value":"201","allowed":"200"})"
                          "\n"
                          R"({"type":"verified","schema":1,"file":")" +
                          (dir_ / "a") +
                          R"(","records":6,"unreadable_bytes":0,"damage":2})"
                          "\n");
}

TEST_F(Verify, HasAnExitStatusForEveryOutcome) {
  tool::write_stack(dir_ / "sound", builder::never_wrapped_file());
  builder::bytes damaged = builder::never_wrapped_file();
  damaged[24] ^= 1;
  tool::write_stack(dir_ / "damaged", damaged);
  tool::write_stack(dir_ / "unreadable", builder::never_wrapped_file());
  ASSERT_EQ(chmod((dir_ / "unreadable").c_str(), 0), 0);
  ASSERT_EQ(mkdir((dir_ / "empty").c_str(), 0755), 0);
  struct {
    std::string argument;
    int status;
  } const rows[] = {{dir_ / "sound", 0},   {dir_ / "unreadable", 1}, {"--no-such-option", 2},
                    {dir_ / "damaged", 3}, {dir_ / "missing", 4},    {dir_ / "empty", 4},
                    {"--help", 0}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.argument);
    EXPECT_EQ(tool::run({"vosk", "verify", row.argument}, tool::options::without_power()).status, row.status);
  }
}
