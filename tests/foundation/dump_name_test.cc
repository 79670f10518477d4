// vk_make_dump_file_copy where no name can be given to the copy: the caller's own path is cited.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/dump_copy.h"

namespace {

using foundation::DumpCopy;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

class DumpName : public DumpCopy {
 protected:
  void SetUp() override {
    DumpCopy::SetUp();
    ASSERT_TRUE(files::write(input_, "the caller's"));
  }
  static std::string unexpected(const std::string &name, int result) {
    return "vk_get_dump_file_name: " +
           folded_text("Unexpected failure testing for the file \"%s\"\nRetruning %d to the caller\n", name.c_str(),
                       result);
  }
};

TEST_F(DumpName, NeedsACommandNameThatStaysInTheDirectory) {
  const std::string entry =
      "vk_get_dump_file_name: " +
      folded_text(
          "Cannot obtain command name from envionment value VOSKPNAME\nAssuming corrupted VOSK Environment\n"
          "Returning VOSK_INV_ENV(-31) to the caller");
  std::vector<std::string> traced;
  for (const std::string value : {"", "/", "/prog", "../stacks/x", "../../../../tmp/x", "./x"}) {
    SCOPED_TRACE(value);
    environment_.set("VOSKPNAME", value);
    Calls calls;
    EXPECT_EQ(copy(calls, input_), -31);
    EXPECT_EQ(cited(), input_);
    EXPECT_EQ(calls.count("open"), 0);
    EXPECT_EQ(calls.count("stat"), value.empty() ? 4 : 6);
    traced.push_back(entry);
    EXPECT_EQ(entries(), traced);
  }
  for (const char *value : {"a/b", "prog/"}) {
    SCOPED_TRACE(value);
    environment_.set("VOSKPNAME", value);
    Calls calls;
    EXPECT_EQ(copy(calls, input_), -14) << "such a directory is missing";
    EXPECT_EQ(cited(), input_);
    EXPECT_EQ(calls.count("open"), 0);
  }
  environment_.unset("VOSKPNAME");
  EXPECT_EQ(copy(input_), -31);
  EXPECT_EQ(cited(), input_);
  EXPECT_THAT(dumps(), IsEmpty());
}

TEST_F(DumpName, IsTakenWhenTheProcessCopiesTwiceWithinASecond) {
  EXPECT_EQ(copy(input_), 0);
  EXPECT_EQ(cited(), name_);
  const std::size_t before = entries().size();
  ASSERT_TRUE(files::write(input_, "another"));
  Calls calls;
  EXPECT_EQ(copy(calls, input_), -27);
  EXPECT_EQ(cited(), input_);
  EXPECT_EQ(calls.count("open"), 0);
  EXPECT_EQ(files::read(name_), "the caller's") << "the first copy stays";
  ASSERT_EQ(entries().size(), before + 1);
  EXPECT_EQ(entries().back(),
            "vk_get_dump_file_name: " + folded_text("Dump file \"%s\" already exists, cannot recreated it\nReturning "
                                                    "VOSK_FILE_EXIST(-27) to the caller\n",
                                                    name_.c_str()));
  EXPECT_EQ(copy(input_, 1706745600), 0) << "a second later";
  EXPECT_EQ(files::read(cited()), "another");
}

TEST_F(DumpName, ReallyCollidesWithinOneSecond) {
  int collisions = 0, copies = 0;
  for (int i = 0; i < 5; ++i) {
    const int result = vk_make_dump_file_copy(0, nullptr, input_.c_str(), output_);
    ASSERT_TRUE(result == 0 || result == -27) << result;
    ++(result == 0 ? copies : collisions);
  }
  EXPECT_GT(collisions, 0);
  EXPECT_EQ(dumps().size(), static_cast<std::size_t>(copies));
}

TEST_F(DumpName, CannotBeADirectory) {
  ASSERT_EQ(mkdir(name_.c_str(), 0755), 0);
  EXPECT_EQ(copy(input_), -23);
  EXPECT_EQ(cited(), input_);
  EXPECT_THAT(entries(), ElementsAre(unexpected(name_, -23)));
  EXPECT_THAT(dumps(), ElementsAre("prog.4711.20240131.235959"));
}

TEST_F(DumpName, FollowsNoLinkThatStandsInItsPlace) {
  ASSERT_EQ(symlink("../elsewhere", name_.c_str()), 0);
  EXPECT_EQ(copy(input_), -1);
  EXPECT_EQ(cited(), input_);
  EXPECT_FALSE(files::exists("/var/adm/vosk/elsewhere"));
  EXPECT_THAT(entries(), ElementsAre("vk_copy_dump_file: " +
                                     folded_text("Cannot open output file \"%s\"\nError code 17\n", name_.c_str())));
}

TEST_F(DumpName, PassesOnWhatTheTestOfTheNameFound) {
  struct Row {
    int query, error, result;
  };
  // The fifth query is that of the name's directory, the sixth that of the name.
  for (const Row &row : {Row{5, EACCES, -13}, Row{5, ENOENT, -14}, Row{5, ENOTDIR, -14}, Row{5, EIO, -1},
                         Row{6, EACCES, -25}, Row{6, ENOTDIR, -14}, Row{6, ELOOP, -1}, Row{6, EIO, -1}}) {
    SCOPED_TRACE(std::to_string(row.query) + platform::error_name(row.error));
    ASSERT_TRUE(files::write(trace_.c_str(), foundation::fresh_trace()));
    Calls calls;
    calls.fail_nth("stat", row.query, row.error);
    EXPECT_EQ(copy(calls, input_), row.result);
    EXPECT_EQ(calls.count("stat"), row.query);
    EXPECT_EQ(cited(), input_);
    ASSERT_EQ(entries().size(), row.result == -1 ? 2U : 1U);
    EXPECT_EQ(entries().back(), unexpected(name_, row.result));
    if (row.result == -1) {
      EXPECT_EQ(entries()[0],
                "vk_test_for_file: " + folded_text("Attemping to check status of file %s\nUnexpected failure on stat() "
                                                   "call: %d\nReturning VOSK_FAILURE(-1)\n",
                                                   name_.c_str(), row.error));
    }
  }
  EXPECT_THAT(dumps(), IsEmpty());
}

// ".4711.20240131.235959" are 21 characters, the directory and its slash 20.
TEST_F(DumpName, CanBeTooLong) {
  struct Row {
    std::size_t length;  // of the command name
    int result;
  };
  const Row rows[] = {{234, 0},    // 255 characters
                      {235, -1},   // 256: refused by the kernel
                      {4054, -1},  // a path of 4095
                      {4055, -1},  // a path of 4096: cut, and refused all the same
                      {4096, -1}, {20000, -1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.length);
    ASSERT_TRUE(files::write(trace_.c_str(), foundation::fresh_trace()));
    const std::string command(row.length, 'c');
    environment_.set("VOSKPNAME", command);
    Calls calls;
    EXPECT_EQ(copy(calls, input_), row.result);
    EXPECT_EQ(calls.count("stat"), 6);
    const std::string name = "/var/adm/vosk/dumps/" + command + ".4711.20240131.235959";
    EXPECT_EQ(cited(), row.result == 0 ? name : input_);
    if (row.result == 0) {
      EXPECT_EQ(files::read(name), "the caller's");
      ASSERT_EQ(unlink(name.c_str()), 0);
    } else {
      EXPECT_THAT(entries(),
                  ElementsAre("vk_test_for_file: " +
                                  folded_text("Attemping to check status of file %s\nUnexpected failure on stat() "
                                              "call: 36\nReturning VOSK_FAILURE(-1)\n",
                                              name.c_str()),
                              unexpected(name, -1)));
      EXPECT_EQ(calls.count("open"), 0);
    }
  }
  EXPECT_THAT(dumps(), IsEmpty());
}

}  // namespace
