// Failures while the values of a VOSK Environment are set: the result, the trace, what stays in the environment and
// which buffers are given back.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "environment_test.h"
#include "support/sandbox.h"
#include "vk_init_stack/env_values.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using trace_file::folded_text;

constexpr int kSet = 0, kDisplay = 1;
constexpr char kStackFile[] = "/var/adm/vosk/stacks/mydaemon.4711.20261116.071127";
const std::string kSetUp = folded_text("Called to set up VOSK Environment values - variable selection mask 0x1f\n");

class EnvValuesFailure : public EnvironmentTest {
 protected:
  EnvValuesFailure() {
    std::printf("\n");  // so that the stream has its buffer before allocations are counted
    std::fflush(stdout);
    prepare(calls_);
    calls_.ignore_path(trace_path());
  }

  int compute(unsigned int mask, int mode = kSet, int trace_on = 1, const char *name = "mydaemon") {
    return during(calls_, [&] { return vk::vk_set_env_values(trace_on, trace_path(), mask, name, 4711, mode); });
  }

  platform::Calls calls_;
};

std::string file_test_failed(int result, const std::string &name) {
  return folded_text(
      "Attempting to set VOSK Environment\nFailure in verifying presence of stack file by vk_test_for_file: %d\n"
      "Name used: %s\n",
      result, name.c_str());
}

std::string putenv_failed(const std::string &text) {
  return folded_text(
      "Attempting to set VOSK Environment\nCannot set process environment: %s\n"
      "Returning VK_ENV_FAILED(16) to caller\n",
      text.c_str());
}

// --- Memory ---

TEST_F(EnvValuesFailure, ShortMemoryEndsTheCallAtOnceAndKeepsEarlierBuffers) {
  static const struct {
    unsigned int mask;
    int nth;
    std::vector<std::size_t> kept;
  } kRows[] = {
      {31, 1, {}},
      {31, 2, {4097}},
      {31, 3, {4097, 4096}},
      {31, 4, {4097, 4096, 4096}},
      {31, 5, {4097, 4096, 4096, 4096}},
      {20, 1, {}},
      {20, 2, {4096}},
      {24, 2, {4096}},
      {1, 1, {}},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(std::to_string(row.mask) + ", allocation " + std::to_string(row.nth));
    platform::Calls calls;
    prepare(calls);
    calls.fail_nth("calloc", row.nth, ENOMEM);
    EXPECT_EQ(during(calls, [&] { return vk::vk_set_env_values(0, nullptr, row.mask, "mydaemon", 4711, kSet); }), 18);
    EXPECT_EQ(kept_buffers(calls), row.kept);
    EXPECT_THAT(calls.log(), IsEmpty());
    EXPECT_THAT(cu_double::all(), IsEmpty());
    EXPECT_THAT(vosk_variables(), IsEmpty());
  }
}

TEST_F(EnvValuesFailure, ShortMemoryIsTraced) {
  calls_.fail_nth("calloc", 3, ENOMEM);
  EXPECT_EQ(compute(31), 18);
  EXPECT_THAT(traced(), ElementsAre("vk_set_env_values: " + kSetUp,
                                    "vk_set_env_values: " +
                                        folded_text("Attempting to set VOSK Environment\nMemory allocation failure - "
                                                    "Returning VK_NO_MEMORY(18) to the caller\n")));
}

TEST_F(EnvValuesFailure, NoBufferIsObtainedForAVariableThatIsNotSelected) {
  calls_.fail_nth("calloc", 1, ENOMEM);
  calls_.allow_unused();
  EXPECT_EQ(compute(0), 0);
  EXPECT_EQ(calls_.faults(), 0);
}

// --- Process information ---

TEST_F(EnvValuesFailure, MissingProcessInformationKeepsEveryBuffer) {
  cu_double::fail_process_info();
  EXPECT_EQ(compute(31), 16);
  EXPECT_THAT(traced(),
              ElementsAre("vk_set_env_values: " + kSetUp,
                          "vk_set_env_values: " +
                              folded_text("Unable to obtain process table information - getprocs errno is %d\n"
                                          "Returning VK_ENV_FAILED(16) to caller\n",
                                          ESRCH)));
  EXPECT_THAT(kept_buffers(calls_), ElementsAre(4097, 4096, 4096, 4096, 4096));
  EXPECT_THAT(vosk_variables(), IsEmpty());
  EXPECT_EQ(calls_.count("stat"), 0);
}

TEST_F(EnvValuesFailure, MissingProcessInformationFailsWithAGivenNameAndInDisplayModeToo) {
  cu_double::fail_process_info();
  testing::internal::CaptureStdout();
  EXPECT_EQ(compute(4, kDisplay), 16);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(kept_buffers(calls_), ElementsAre(4096));
}

// --- The test for the stack file ---

TEST_F(EnvValuesFailure, ExistingStackFileIsRefused) {
  ASSERT_TRUE(files::write(kStackFile, "somebody's"));
  EXPECT_EQ(compute(31), 21);
  EXPECT_THAT(traced(),
              ElementsAre("vk_set_env_values: " + kSetUp, "vk_set_env_values: " + file_test_failed(0, kStackFile)));
  EXPECT_THAT(vosk_variables(), IsEmpty());
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
  EXPECT_EQ(files::read(kStackFile), "somebody's");
}

TEST_F(EnvValuesFailure, ExistingStackFileIsRefusedInDisplayModeToo) {
  ASSERT_TRUE(files::write(kStackFile, ""));
  testing::internal::CaptureStdout();
  EXPECT_EQ(compute(31, kDisplay), 21);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
}

TEST_F(EnvValuesFailure, DirectoryOfTheNameOfTheStackFileIsNoHindrance) {
  ASSERT_TRUE(std::filesystem::create_directory(kStackFile));
  EXPECT_EQ(compute(1), 0);
  EXPECT_THAT(vosk_variables(), ElementsAre(Pair("VOSKSTACK", kStackFile)));
  EXPECT_EQ(traced("vk_set_env_values").at(1), file_test_failed(-23, kStackFile));
}

TEST_F(EnvValuesFailure, MissingStackDirectoryIsRefused) {
  ASSERT_TRUE(std::filesystem::remove(sandbox::kStacks));
  EXPECT_EQ(compute(31), 19);
  EXPECT_EQ(traced("vk_set_env_values").at(1), file_test_failed(-14, kStackFile));
  EXPECT_THAT(vosk_variables(), IsEmpty());
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
}

TEST_F(EnvValuesFailure, FileInPlaceOfTheStackDirectoryIsRefused) {
  ASSERT_TRUE(std::filesystem::remove(sandbox::kStacks));
  ASSERT_TRUE(files::write(sandbox::kStacks, ""));
  EXPECT_EQ(compute(31), 19);
  EXPECT_EQ(traced("vk_set_env_values").at(1), file_test_failed(-14, kStackFile));
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
}

TEST_F(EnvValuesFailure, MissingDirectoryPartOfTheNameIsRefused) {
  EXPECT_EQ(compute(31, kSet, 1, "/usr/bin/tool"), 19);
  EXPECT_EQ(traced("vk_set_env_values").at(1),
            file_test_failed(-14, "/var/adm/vosk/stacks//usr/bin/tool.4711.20261116.071127"));
}

TEST_F(EnvValuesFailure, EachResultOfTheFileTestHasItsOwn) {
  static constexpr struct {
    int nth_stat;  // the first is that of the directory
    int error;
    int file_test;
    int result;
  } kRows[] = {
      {1, EACCES, -13, 19}, {1, ENOENT, -14, 19},  {1, ENOTDIR, -14, 19}, {1, EIO, -1, 99}, {1, ESTALE, -1, 99},
      {2, EACCES, -25, 19}, {2, ENOTDIR, -14, 19}, {2, ELOOP, -1, 99},    {2, EIO, -1, 99}, {2, ENAMETOOLONG, -1, 99},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE("stat " + std::to_string(row.nth_stat) + " " + platform::error_name(row.error));
    forget_traces();
    fresh_double();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_path());
    calls.fail_nth("stat", row.nth_stat, row.error);
    EXPECT_EQ(during(calls, [&] { return vk::vk_set_env_values(1, trace_path(), 31, "mydaemon", 4711, kSet); }),
              row.result);
    EXPECT_THAT(traced("vk_set_env_values"), ElementsAre(kSetUp, file_test_failed(row.file_test, kStackFile)));
    EXPECT_THAT(kept_buffers(calls), IsEmpty());
    EXPECT_THAT(vosk_variables(), IsEmpty());
  }
}

TEST_F(EnvValuesFailure, DirectoriesThatTheUserCannotSearchAreRefused) {
  for (const char *closed : {sandbox::kRoot, sandbox::kStacks}) {
    RUN_IN_SANDBOX(sandbox::Options(), [&] {
      ASSERT_EQ(chmod(closed, 0), 0);
      chmod(directory_.path().c_str(), 0777);
      chmod(trace_path(), 0666);
      if (!sandbox::drop_to(sandbox::kNobody)) CANNOT_RUN_HERE("another user needs real root");
      EXPECT_EQ(compute(31), 19);
      EXPECT_EQ(traced("vk_set_env_values").back(),
                file_test_failed(closed == std::string(sandbox::kRoot) ? -13 : -25, kStackFile));
      EXPECT_THAT(vosk_variables(), IsEmpty());
    });
  }
}

// A path of 4096 bytes is too long for the kernel; one that leaves no room for its variable's name is refused as well.
TEST_F(EnvValuesFailure, TooLongPathIsNeverCutAndUsed) {
  std::string deep;  // 20 levels of 200 characters, 4019 in all
  for (int level = 0; level < 20; ++level) deep += (level == 0 ? "" : "/") + std::string(200, 'd');
  std::filesystem::current_path(sandbox::kStacks);
  for (int level = 0; level < 20; ++level) {
    std::filesystem::create_directory(std::string(200, 'd'));
    std::filesystem::current_path(std::string(200, 'd'));
  }
  std::filesystem::current_path("/");
  // "/var/adm/vosk/stacks/", the directories, "/", the name, ".4711.20261116.071127"
  const auto name = [&](std::size_t path_length) {
    return deep + "/" + std::string(path_length - 21 - 4019 - 1 - 21, 'n');
  };
  EXPECT_EQ(compute(1, kSet, 0, name(4086).c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKSTACK").size(), 4086U);
  unset("VOSKSTACK");
  for (std::size_t length : {std::size_t{4087}, std::size_t{4095}, std::size_t{4096}, std::size_t{4097}}) {
    EXPECT_EQ(compute(1, kSet, 0, name(length).c_str()), 99) << length;
    EXPECT_THAT(vosk_variables(), IsEmpty()) << length;
  }
  EXPECT_EQ(compute(1, kSet, 0, std::string(100000, 'n').c_str()), 99);
  EXPECT_THAT(vosk_variables(), IsEmpty());
}

TEST_F(EnvValuesFailure, TooLongPathIsTracedAsTheKernelsRefusal) {
  const std::string name(5000, 'n');
  EXPECT_EQ(compute(1, kSet, 1, name.c_str()), 99);
  const std::string path = "/var/adm/vosk/stacks/" + name;
  EXPECT_THAT(
      traced(),
      ElementsAre("vk_set_env_values: " +
                      folded_text("Called to set up VOSK Environment values - variable selection mask 0x1\n"),
                  "vk_test_for_file: " +
                      folded_text("Attemping to check status of file %s\nUnexpected failure on stat() call: %d\n",
                                  path.c_str(), ENAMETOOLONG),
                  "vk_set_env_values: " + file_test_failed(-1, path)));
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
}

// --- The node's address ---

TEST_F(EnvValuesFailure, MissingAddressKeepsWhatWasExportedAndReleasesTheRest) {
  calls_.fail_all("socket", EMFILE);
  EXPECT_EQ(compute(31), 16);
  EXPECT_THAT(vosk_variables(),
              UnorderedElementsAre(Pair("VOSKSTACK", kStackFile), Pair("VOSKORIG", "4711"), Pair("VOSKPID", "4711")));
  EXPECT_THAT(kept_buffers(calls_), ElementsAre(4097, 4096, 4096));
  EXPECT_THAT(traced(), ElementsAre("vk_set_env_values: " + kSetUp,
                                    "vk_obtain_ipaddrs: " + folded_text("Cannot create socket - error code %d\n"
                                                                        "Returning VOSK_FAILURE(-1) to caller",
                                                                        EMFILE),
                                    "vk_get_ipaddr: Unable to query any net adapters - return VOSK_FAILURE(-1)",
                                    "vk_set_env_values: " + folded_text("Unable to obtain IP address information\n"
                                                                        "Cannot set up VOSK Environment for process\n"
                                                                        "Returning VK_ENV_FAILED(16) to caller")));
}

TEST_F(EnvValuesFailure, MissingAddressInDisplayModePrintsWhatComesBeforeIt) {
  calls_.fail_all("socket", EMFILE);
  testing::internal::CaptureStdout();
  EXPECT_EQ(compute(30, kDisplay), 16);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "VOSKORIG=4711\nVOSKPID=4711\n");
  EXPECT_THAT(kept_buffers(calls_), IsEmpty());
  EXPECT_THAT(vosk_variables(), IsEmpty());
}

// --- putenv ---

TEST_F(EnvValuesFailure, RefusedVariableKeepsTheEarlierOnesAndReleasesTheRest) {
  const std::pair<std::string, std::string> assignments[] = {{"VOSKSTACK", kStackFile},
                                                             {"VOSKORIG", "4711"},
                                                             {"VOSKPID", "4711"},
                                                             {"VOSKADDR", ".XO.8...................."},
                                                             {"VOSKPNAME", "mydaemon"}};
  const std::vector<std::size_t> sizes = {4097, 4096, 4096, 4096, 4096};
  for (int nth = 1; nth <= 5; ++nth) {
    SCOPED_TRACE(nth);
    forget_traces();
    for (const auto &[name, value] : assignments) unset(name);
    fresh_double();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_path());
    calls.fail_nth("putenv", nth, ENOMEM);
    EXPECT_EQ(during(calls, [&] { return vk::vk_set_env_values(1, trace_path(), 31, "mydaemon", 4711, kSet); }), 16);
    EXPECT_EQ(calls.count("putenv"), nth);
    EXPECT_EQ(vosk_variables(), Variables(assignments, assignments + nth - 1));
    EXPECT_EQ(kept_buffers(calls), std::vector<std::size_t>(sizes.begin(), sizes.begin() + nth - 1));
    const auto &refused = assignments[nth - 1];
    EXPECT_THAT(traced("vk_set_env_values"), ElementsAre(kSetUp, putenv_failed(refused.first + "=" + refused.second)));
  }
}

TEST_F(EnvValuesFailure, RefusedVariableOfTheShorterMasksIsTreatedAlike) {
  calls_.fail_nth("putenv", 2, ENOMEM);
  EXPECT_EQ(compute(20), 16);
  EXPECT_THAT(vosk_variables(), ElementsAre(Pair("VOSKPID", "4711")));
  EXPECT_THAT(kept_buffers(calls_), ElementsAre(4096));
  EXPECT_EQ(traced("vk_set_env_values").at(1), putenv_failed("VOSKPNAME=mydaemon"));
}

}  // namespace
