// The values of a VOSK Environment: which are computed, in which form, and where they go.
#include <gmock/gmock.h>
#include <unistd.h>

#include <climits>
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
constexpr int kPid = 4711;

const Variables kAll = {{"VOSKSTACK", "/var/adm/vosk/stacks/mydaemon.4711.20261116.071127"},
                        {"VOSKORIG", "4711"},
                        {"VOSKPID", "4711"},
                        {"VOSKADDR", std::string(kNodeAddress) + "."},
                        {"VOSKPNAME", "mydaemon"}};

class EnvValues : public EnvironmentTest {
 protected:
  EnvValues() {
    std::printf("\n");  // so that the stream has its buffer before allocations are counted
    std::fflush(stdout);
  }

  int compute(platform::Calls &calls, unsigned int mask, const char *name, int mode = kSet, int trace_on = 0,
              int pid = kPid) {
    const char *path = trace_on == 1 ? trace_path() : nullptr;
    return during(calls, [&] { return vk::vk_set_env_values(trace_on, path, mask, name, pid, mode); });
  }

  // Sets the variables of the mask at the usual time on the usual node.
  int set_values(unsigned int mask, const char *name, int trace_on = 0) {
    platform::Calls calls;
    prepare(calls);
    return compute(calls, mask, name, kSet, trace_on);
  }
};

TEST_F(EnvValues, EveryMaskSetsItsVariablesInTheirOrderAndNoOther) {
  const char *const names[] = {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
  for (unsigned int mask = 0; mask <= 31; ++mask) {
    SCOPED_TRACE(mask);
    for (const char *name : names) unset(name);
    fresh_double();
    platform::Calls calls;
    prepare(calls);
    EXPECT_EQ(compute(calls, mask, "mydaemon"), 0);

    Variables expected;
    std::vector<std::string> assignments;
    std::vector<std::size_t> buffers;
    for (unsigned int i = 0; i < 5; ++i) {
      if ((mask & (1U << i)) == 0) continue;
      expected[names[i]] = kAll.at(names[i]);
      assignments.push_back(std::string(names[i]) + "=" + kAll.at(names[i]));
      buffers.push_back(i == 0 ? 4097 : 4096);
    }
    EXPECT_EQ(vosk_variables(), expected);
    std::vector<std::string> put;
    for (const platform::Call &call : calls.calls())
      if (call.name == "putenv") put.push_back(call.data);
    EXPECT_EQ(put, assignments);
    EXPECT_EQ(kept_buffers(calls), buffers) << "the environment owns exactly the buffers it was given";
    EXPECT_EQ(calls.count("calloc"), static_cast<int>(buffers.size()));
    EXPECT_EQ(calls.count("ioctl") != 0, (mask & 8) != 0);
    EXPECT_EQ(calls.count("stat") != 0, (mask & 1) != 0);
  }
}

TEST_F(EnvValues, PlatformIsAskedInThisOrder) {
  platform::Calls calls;
  prepare(calls);
  calls.ignore("fcntl");
  EXPECT_EQ(compute(calls, 31, "mydaemon"), 0);
  EXPECT_THAT(
      calls.log(),
      ElementsAre("gettimeofday() = 0", "localtime_r(1794813087) = pointer", "stat(\"/var/adm/vosk/stacks\") = 0",
                  "stat(\"/var/adm/vosk/stacks/mydaemon.4711.20261116.071127\") = -1 ENOENT",
                  "putenv(\"VOSKSTACK=/var/adm/vosk/stacks/mydaemon.4711.20261116.071127\") = 0",
                  "putenv(\"VOSKORIG=4711\") = 0", "putenv(\"VOSKPID=4711\") = 0", "socket(2, 0x2, 0) = fd1",
                  "ioctl(fd1, SIOCGIFCONF, 2560) = 0", "ioctl(fd1, SIOCGIFFLAGS, \"eth0\") = 0",
                  "putenv(\"VOSKADDR=.XO.8....................\") = 0", "putenv(\"VOSKPNAME=mydaemon\") = 0"));
  EXPECT_THAT(cu_double::sequence(), ElementsAre("process 4711 = 1"));
}

TEST_F(EnvValues, ProcessInformationIsAskedForWithEveryMask) {
  for (unsigned int mask : {0U, 1U, 2U, 4U, 8U, 16U, 20U, 24U, 31U}) {
    fresh_double();
    EXPECT_EQ(set_values(mask, "mydaemon"), 0) << mask;
    EXPECT_THAT(cu_double::sequence(), ElementsAre("process 4711 = 1")) << mask;
  }
}

TEST_F(EnvValues, MasksWithAHigherBitAreRefusedBeforeAnythingElse) {
  for (unsigned int mask : {32U, 33U, 63U, 0x1000U, 0x80000000U, 0xFFFFFFFFU}) {
    SCOPED_TRACE(mask);
    platform::Calls calls;
    EXPECT_EQ(compute(calls, mask, "mydaemon"), 99);
    EXPECT_THAT(calls.log(), IsEmpty());
    EXPECT_EQ(calls.count("allocation"), 0);
    EXPECT_THAT(cu_double::all(), IsEmpty());
  }
  platform::Calls calls;
  EXPECT_EQ(compute(calls, 0xFFFFFFE0U, "mydaemon", kSet, 1), 99);
  EXPECT_EQ(compute(calls, 32, "mydaemon", kDisplay, 1), 99);
  EXPECT_THAT(
      traced(),
      ElementsAre("vk_set_env_values: " +
                      folded_text("Called to set up VOSK Environment values - variable selection mask 0xffffffe0\n"),
                  "vk_set_env_values: " +
                      folded_text("Called to calculate VOSK Environment values - variable selection mask 0x20\n")));
  EXPECT_THAT(vosk_variables(), IsEmpty());
}

TEST_F(EnvValues, LocalTimeIsPaddedAsTheNameOfTheStackFileWantsIt) {
  static constexpr struct {
    std::int64_t seconds;
    const char *zone;
    const char *value;
  } kRows[] = {
      {1767323045, "UTC0", "20260102.030405"},     {1767323045, "EST5", "20260101.220405"},
      {1767323045, "XXX-5:45", "20260102.084905"}, {0, "UTC0", "19700101.000000"},
      {-30610224001, "UTC0", " 9991231.235959"},   {253402300800, "UTC0", "100000101.000000"},
  };
  for (const auto &row : kRows) {
    platform::Environment zone;
    zone.set("TZ", row.zone);
    tzset();
    platform::Calls calls;
    calls.fixed_clock(row.seconds, 999999);
    EXPECT_EQ(compute(calls, 1, "mydaemon"), 0);
    EXPECT_EQ(vosk_variables().at("VOSKSTACK"), std::string("/var/adm/vosk/stacks/mydaemon.4711.") + row.value);
  }
}

TEST_F(EnvValues, TimeIsTakenOnceSoThatTheTestedNameIsTheExportedOne) {
  platform::Calls calls;
  calls.fixed_clock(kNow, 0, 3600 * 1000000LL);
  EXPECT_EQ(compute(calls, 1, "mydaemon"), 0);
  EXPECT_EQ(calls.count("gettimeofday"), 1);
  EXPECT_EQ(vosk_variables().at("VOSKSTACK"), "/var/adm/vosk/stacks/mydaemon.4711.20261116.071127");
}

TEST_F(EnvValues, ProcessIdIsWrittenAsASignedDecimal) {
  static constexpr struct {
    int pid;
    const char *text;
  } kRows[] = {{1, "1"}, {0, "0"}, {-17, "-17"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
  for (const auto &row : kRows) {
    platform::Calls calls;
    prepare(calls);
    EXPECT_EQ(compute(calls, 7, "d", kSet, 0, row.pid), 0);
    EXPECT_THAT(vosk_variables(), UnorderedElementsAre(Pair("VOSKORIG", row.text), Pair("VOSKPID", row.text),
                                                       Pair("VOSKSTACK", std::string("/var/adm/vosk/stacks/d.") +
                                                                             row.text + ".20261116.071127")));
  }
}

TEST_F(EnvValues, NodeWithoutAnAddressHasTheEmptyOneOfTheOtherType) {
  platform::Calls calls;
  calls.fake_interfaces({});
  EXPECT_EQ(compute(calls, 8, "mydaemon"), 0);
  EXPECT_EQ(vosk_variables().at("VOSKADDR"), "......................../");
}

TEST_F(EnvValues, NameIsTheLastComponentOfTheCallersOrTheCommandName) {
  static const struct {
    const char *given;
    std::string value;
  } kRows[] = {
      {"tool", "tool"},
      {"/usr/bin/tool", "tool"},
      {"usr/bin/tool", "tool"},
      {"/usr/bin/tool/", "tool"},
      {"tool//", "tool"},
      {"/", "/"},
      {"///", "/"},
      {".", "."},
      {"..", ".."},
      {"a b=c%s", "a b=c%s"},
      {"", "command"},
      {nullptr, "command"},
  };
  for (const auto &row : kRows) {
    EXPECT_EQ(set_values(16, row.given), 0);
    EXPECT_THAT(vosk_variables(), ElementsAre(Pair("VOSKPNAME", row.value)));
  }
}

TEST_F(EnvValues, CommandNameWithADirectoryPartIsTreatedLikeAGivenName) {
  cu_double::give_process_name("sbin/commander");
  ASSERT_TRUE(std::filesystem::create_directory("/var/adm/vosk/stacks/sbin"));
  EXPECT_EQ(set_values(17, nullptr), 0);
  EXPECT_THAT(vosk_variables(),
              ElementsAre(Pair("VOSKPNAME", "commander"),
                          Pair("VOSKSTACK", "/var/adm/vosk/stacks/sbin/commander.4711.20261116.071127")));
}

TEST_F(EnvValues, CommandNameThatFillsItsFieldIsTakenUpToTheLastByte) {
  cu_double::give_process_name(std::string(64, 'c'));
  EXPECT_EQ(set_values(16, nullptr), 0);
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), std::string(63, 'c'));
}

TEST_F(EnvValues, EmptyCommandNameIsTheCurrentDirectory) {
  cu_double::give_process_name("");
  EXPECT_EQ(set_values(17, nullptr), 0);
  EXPECT_THAT(vosk_variables(),
              ElementsAre(Pair("VOSKPNAME", "."), Pair("VOSKSTACK", "/var/adm/vosk/stacks/.4711.20261116.071127")));
}

TEST_F(EnvValues, DirectoryPartOfANameStaysInThePathOfTheStackFile) {
  ASSERT_TRUE(std::filesystem::create_directories("/var/adm/vosk/stacks/usr/bin"));
  EXPECT_EQ(set_values(17, "/usr/bin/tool"), 0);
  EXPECT_THAT(vosk_variables(),
              ElementsAre(Pair("VOSKPNAME", "tool"),
                          Pair("VOSKSTACK", "/var/adm/vosk/stacks//usr/bin/tool.4711.20261116.071127")));
}

TEST_F(EnvValues, LongNameIsCutToTheBufferOfItsVariable) {
  // 4096 bytes hold "VOSKPNAME=", 4085 characters and a zero byte.
  EXPECT_EQ(set_values(16, std::string(4085, 'n').c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), std::string(4085, 'n'));
  EXPECT_EQ(set_values(16, std::string(4090, 'm').c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), std::string(4085, 'm'));
  EXPECT_EQ(set_values(16, std::string(100000, 'l').c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), std::string(4085, 'l'));
  EXPECT_EQ(set_values(16, (std::string(100000, 'l') + "/tool").c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), "tool");
}

// --- Display mode ---

TEST_F(EnvValues, DisplayModePrintsFiveLinesAndLeavesTheEnvironmentAsItWas) {
  set({{"VOSKPID", "1"}, {"VOSKPNAME", "old"}});
  std::vector<const char *> before;
  for (char **entry = environ; *entry != nullptr; ++entry) before.push_back(*entry);
  platform::Calls calls;
  prepare(calls);
  testing::internal::CaptureStdout();
  EXPECT_EQ(compute(calls, 31, "mydaemon", kDisplay), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "VOSKSTACK=/var/adm/vosk/stacks/mydaemon.4711.20261116.071127\n"
            "VOSKORIG=4711\n"
            "VOSKPID=4711\n"
            "VOSKADDR=.XO.8....................\n"
            "VOSKPNAME=mydaemon\n");
  EXPECT_EQ(calls.count("putenv"), 0);
  EXPECT_THAT(kept_buffers(calls), IsEmpty());
  std::vector<const char *> after;
  for (char **entry = environ; *entry != nullptr; ++entry) after.push_back(*entry);
  EXPECT_EQ(after, before);
  EXPECT_THAT(vosk_variables(), UnorderedElementsAre(Pair("VOSKPID", "1"), Pair("VOSKPNAME", "old")));
}

TEST_F(EnvValues, DisplayModePrintsOnlyWhatTheMaskSelects) {
  for (const auto &[mask, printed] : std::map<unsigned int, std::string>{
           {0, ""},
           {20, "VOSKPID=4711\nVOSKPNAME=mydaemon\n"},
           {24, "VOSKADDR=.XO.8....................\nVOSKPNAME=mydaemon\n"},
           {2, "VOSKORIG=4711\n"},
       }) {
    platform::Calls calls;
    prepare(calls);
    testing::internal::CaptureStdout();
    EXPECT_EQ(compute(calls, mask, "mydaemon", kDisplay), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
    EXPECT_THAT(kept_buffers(calls), IsEmpty());
  }
}

TEST_F(EnvValues, OnlyTheModeOneDisplays) {
  for (int mode : {0, 2, 3, -1, INT_MAX, INT_MIN}) {
    unset("VOSKPID");
    platform::Calls calls;
    testing::internal::CaptureStdout();
    EXPECT_EQ(compute(calls, 4, "mydaemon", mode), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(vosk_variables(), ElementsAre(Pair("VOSKPID", "4711"))) << mode;
  }
}

// --- Traces of success ---

TEST_F(EnvValues, DisplayModeTracesEachLineAndReadsNothingBack) {
  platform::Calls calls;
  prepare(calls);
  testing::internal::CaptureStdout();
  EXPECT_EQ(compute(calls, 31, "mydaemon", kDisplay, 1), 0);
  testing::internal::GetCapturedStdout();
  EXPECT_THAT(
      traced("vk_set_env_values"),
      ElementsAre(folded_text("Called to calculate VOSK Environment values - variable selection mask 0x1f\n"),
                  folded_text("Envir Value \"VOSKSTACK=/var/adm/vosk/stacks/mydaemon.4711.20261116.071127\" printed\n"),
                  "Envir Value \"VOSKORIG=4711\" printed", "Envir Value \"VOSKPID=4711\" printed",
                  "Envir Value \"VOSKADDR=.XO.8....................\" printed",
                  "Envir Value \"VOSKPNAME=mydaemon\" printed"));
}

TEST_F(EnvValues, SetModeReadsTheValuesBackWhileTracing) {
  EXPECT_EQ(set_values(31, "mydaemon", 1), 0);
  EXPECT_THAT(traced("vk_set_env_values"),
              ElementsAre(folded_text("Called to set up VOSK Environment values - variable selection mask 0x1f\n"),
                          "VOSKPID variable successfully set to 4711", "VOSKORIG variable successfully set to 4711",
                          "VOSKADDR variable successfully set to .XO.8....................",
                          "VOSKPNAME variable successfully set to mydaemon"));
}

TEST_F(EnvValues, ReadingBackLooksAtTheSelectedVariablesOnly) {
  EXPECT_EQ(set_values(20, nullptr, 1), 0);
  EXPECT_THAT(
      traced("vk_set_env_values"),
      ElementsAre(folded_text("Called to set up VOSK Environment values - variable selection mask 0x14\n"),
                  "VOSKPID variable successfully set to 4711", "VOSKPNAME variable successfully set to command"));
}

TEST_F(EnvValues, NothingIsTracedOrReadBackUnlessTheSwitchIsOne) {
  const char *path = trace_path();
  for (int trace_on : {0, 2, -1}) {
    platform::Calls calls;
    prepare(calls);
    EXPECT_EQ(during(calls, [&] { return vk::vk_set_env_values(trace_on, path, 31, "mydaemon", kPid, kSet); }), 0);
    EXPECT_EQ(calls.count("getenv"), 0);
  }
  EXPECT_THAT(traced(), IsEmpty());
}

// What another thread or a hook made of the variable is noticed in the trace and changes nothing else.
TEST_F(EnvValues, ResultOfReadingBackIsIgnored) {
  platform::Calls calls;
  prepare(calls);
  calls.after("putenv", 5, [](const platform::Call &) { setenv("VOSKPID", "17", 1); });
  EXPECT_EQ(compute(calls, 31, "mydaemon", kSet, 1), 0);
  EXPECT_THAT(traced("vk_set_env_values"),
              ElementsAre(folded_text("Called to set up VOSK Environment values - variable selection mask 0x1f\n"),
                          folded_text("Attempted to set VOSKPID environment variable to 4711 value\n"
                                      "VOSKPID has been set to value 17\n"
                                      "Assuming environment not set\n"
                                      "Returning VK_ENV_FAILED(16) to caller\n")));
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), "mydaemon");
}

TEST_F(EnvValues, NameWithADirectoryPartReadsBackAsDifferent) {
  EXPECT_EQ(set_values(16, "/usr/bin/tool", 1), 0);
  EXPECT_THAT(traced("vk_set_env_values"),
              ElementsAre(folded_text("Called to set up VOSK Environment values - variable selection mask 0x10\n"),
                          folded_text("Attempted to set VOSKPNAME environment variable to /usr/bin/tool value\n"
                                      "VOSKPNAME has been set to value tool\n"
                                      "Assuming environment not set\n"
                                      "Returning VK_ENV_FAILED(16) to caller\n")));
}

}  // namespace
