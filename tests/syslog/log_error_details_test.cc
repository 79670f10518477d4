// Detail files of System Log records: copied to the dumps directory and cited, or neither.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "log_error_test.h"
#include "support/sandbox.h"

namespace {

using namespace log_error_test;
using testing::ElementsAre;
using testing::IsEmpty;

class LogErrorDetails : public LogErrorTest {
 protected:
  LogErrorDetails() {
    incident_.detail_data = nullptr;
    file_ = directory_ / "details";
    files::write(file_, "the details\n");
    incident_.detail_file = file_.c_str();
  }
  static std::string copy_name() { return "command." + std::to_string(getpid()) + ".20231114.221320"; }
  static std::string copy_path() { return std::string(sandbox::kDumps) + "/" + copy_name(); }
  std::string copy_failed() const {
    return "32: vosk.cat 1/4 (\"vk_log_error\", \"" + file_ + "\", \"/var/adm/vosk/dumps\")";
  }
  // The file was neither copied nor cited.
  void expect_failed_copy() {
    EXPECT_EQ(result_, 32);
    EXPECT_THAT(cu_double::sequence(), ElementsAre(copy_failed()));
    EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", "the message"));
  }

  files::TemporaryDirectory directory_;
  std::string file_;
  Incident incident_;
};

TEST_F(LogErrorDetails, FileIsCopiedAndTheCopyIsCited) {
  EXPECT_EQ(record(incident_), 0);
  EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", copy_path(), "the message"));
  EXPECT_EQ(files::read(copy_path()), "the details\n");
  EXPECT_THAT(files::list(sandbox::kDumps), ElementsAre(copy_name()));
  EXPECT_EQ(files::read(file_), "the details\n");
}

TEST_F(LogErrorDetails, EmptyFileIsCopiedToo) {
  files::write(file_, "");
  EXPECT_EQ(record(incident_), 0);
  EXPECT_EQ(files::read(copy_path()), "");
}

TEST_F(LogErrorDetails, FileBesideDataIsNeitherCopiedNorCited) {
  incident_.detail_data = "data";
  EXPECT_EQ(record(incident_), 26);
  EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", "the message"));
  EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
}

TEST_F(LogErrorDetails, SecondCopyInTheSameSecondFails) {
  EXPECT_EQ(record(incident_), 0);
  record(incident_);
  expect_failed_copy();
}

TEST_F(LogErrorDetails, MissingFileCannotBeCopied) {
  std::filesystem::remove(file_);
  record(incident_);
  expect_failed_copy();
}

// The copy routine then leaves the caller's own path in its buffer; the record does not cite it.
TEST_F(LogErrorDetails, MissingDirectoryOrNameLeavesTheDetailsFileEmpty) {
  unset("VOSKPNAME");
  record(incident_);
  expect_failed_copy();
  set("VOSKPNAME", "command");
  ASSERT_TRUE(std::filesystem::remove(sandbox::kDumps));
  record(incident_);
  expect_failed_copy();
}

TEST_F(LogErrorDetails, FailedWriteLeavesNoCopyAndNoPath) {
  platform::Calls calls;
  calls.fail_nth("write", 1, ENOSPC);
  record(incident_, calls);
  expect_failed_copy();
  EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
}

TEST_F(LogErrorDetails, DirectoryIsNoDetailFile) {
  incident_.detail_file = directory_.path().c_str();
  file_ = directory_.path();
  record(incident_);
  expect_failed_copy();
}

TEST_F(LogErrorDetails, IdentifierIsMadeBeforeTheCopy) {
  platform::Calls calls;
  record(incident_, calls);
  const std::vector<std::string> names = calls.names();
  const auto position = [&](const std::string &name) {
    return std::find(names.begin(), names.end(), name) - names.begin();
  };
  EXPECT_LT(position("gettimeofday"), position("stat"));
  EXPECT_LT(position("read"), position("openlog"));
}

}  // namespace
