// Reading the exported values back: what counts as meant, and what is traced.
#include <gmock/gmock.h>

#include "environment_test.h"
#include "vk_init_stack/env_values.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

constexpr unsigned int kStack = 1, kOrig = 2, kPid = 4, kAddr = 8, kPname = 16;

class EnvVerify : public EnvironmentTest {
 protected:
  int verify(unsigned int mask, const char *name = "tool", const char *address = kNodeAddress, int pid = 4711) {
    forget_traces();
    return vk::vk_verify_env_values(1, trace_path(), mask, name, address, '.', pid);
  }
};

TEST_F(EnvVerify, AcceptsWhatReadsBackAsMeant) {
  set({{"VOSKSTACK", "never looked at"},
       {"VOSKORIG", "4711"},
       {"VOSKPID", "4711"},
       {"VOSKADDR", std::string(kNodeAddress) + "."},
       {"VOSKPNAME", "tool"}});
  EXPECT_EQ(verify(31), 0);
  EXPECT_THAT(traced(),
              ElementsAre("vk_set_env_values: VOSKPID variable successfully set to 4711",
                          "vk_set_env_values: VOSKORIG variable successfully set to 4711",
                          "vk_set_env_values: VOSKADDR variable successfully set to .XO.8....................",
                          "vk_set_env_values: VOSKPNAME variable successfully set to tool"));
}

TEST_F(EnvVerify, LooksAtTheSelectedVariablesOnly) {
  EXPECT_EQ(verify(0), 0);
  EXPECT_EQ(verify(kStack), 0);
  EXPECT_THAT(traced(), IsEmpty());
  set({{"VOSKPID", "4711"}, {"VOSKPNAME", "tool"}});
  EXPECT_EQ(verify(kPid | kPname), 0);
  EXPECT_THAT(traced("vk_set_env_values"),
              ElementsAre("VOSKPID variable successfully set to 4711", "VOSKPNAME variable successfully set to tool"));
}

TEST_F(EnvVerify, MissingVariableEndsTheReadingWithItsOwnText) {
  const struct {
    const char *name;
    unsigned int mask;
    const char *text;
  } kRows[] = {
      {"VOSKPID", kPid,
       "Cannot obtain value of environment variable VOSKPID\nAssuming environment not set\n"
       "Returning VK_ENV_FAILED(16) to caller"},
      {"VOSKORIG", kOrig,
       "Cannot obtain value of environment variable VOSKORIG\nAssuming environment\n"
       "Returning VK_ENV_FAILED(16) to caller"},
      {"VOSKADDR", kAddr,
       "Cannot obtain value of environment variable VOSKADDR\nAssuming environment\n"
       "Returning VK_ENV_FAILED(16) to caller"},
      {"VOSKPNAME", kPname,
       "Cannot obtain value of environment variable VOSKPNAME\nAssuming environment\n"
       "Returning VK_ENV_FAILED(16) to caller"},
  };
  for (const auto &row : kRows) {
    unset(row.name);
    EXPECT_EQ(verify(row.mask), 16);
    EXPECT_THAT(traced("vk_set_env_values"), ElementsAre(row.text));
    set({{row.name, ""}});
    EXPECT_EQ(verify(row.mask), 16) << "an empty value counts as not set";
    EXPECT_THAT(traced("vk_set_env_values"), ElementsAre(row.text));
  }
}

TEST_F(EnvVerify, DifferingValueEndsTheReadingWithBothValues) {
  const struct {
    const char *name;
    unsigned int mask;
    const char *value;
    const char *text;
  } kRows[] = {
      {"VOSKPID", kPid, "4712",
       "Attempted to set VOSKPID environment variable to 4711 value\nVOSKPID has been set to value 4712\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKPID", kPid, "nonsense",
       "Attempted to set VOSKPID environment variable to 4711 value\nVOSKPID has been set to value 0\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKORIG", kOrig, "-4711",
       "Attempted to set VOSKORIG environment variable to 4711 value\nVOSKORIG has been set to value -4711\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKORIG", kOrig, "99999999999999999999",
       "Attempted to set VOSKORIG environment variable to 4711 value\nVOSKORIG has been set to value 2147483647\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKADDR", kAddr, "z/../....................",
       "Attempted to set VOSKADDR environment variable to .XO.8.................... value\n"
       "VOSKADDR has been set to value z/../....................\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKADDR", kAddr, ".XO.8..................",
       "Attempted to set VOSKADDR environment variable to .XO.8.................... value\n"
       "VOSKADDR has been set to value .XO.8..................\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKPNAME", kPname, "too",
       "Attempted to set VOSKPNAME environment variable to tool value\nVOSKPNAME has been set to value too\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
      {"VOSKPNAME", kPname, "Tool",
       "Attempted to set VOSKPNAME environment variable to tool value\nVOSKPNAME has been set to value Tool\n"
       "Assuming environment not set\nReturning VK_ENV_FAILED(16) to caller\n"},
  };
  for (const auto &row : kRows) {
    set({{row.name, row.value}});
    EXPECT_EQ(verify(row.mask), 16) << row.value;
    EXPECT_THAT(traced("vk_set_env_values"), ElementsAre(folded_text("%s", row.text)));
  }
}

TEST_F(EnvVerify, FirstMismatchDecidesInTheOrderOwnerOriginatorAddressName) {
  set({{"VOSKPID", "1"}, {"VOSKORIG", "2"}, {"VOSKADDR", "3"}, {"VOSKPNAME", "4"}});
  const std::pair<const char *, const char *> order[] = {
      {"VOSKPID", "4711"}, {"VOSKORIG", "4711"}, {"VOSKADDR", kNodeAddress}, {"VOSKPNAME", "tool"}};
  std::size_t repaired = 0;
  for (const auto &[name, value] : order) {
    EXPECT_EQ(verify(31), 16);
    const std::vector<std::string> texts = traced("vk_set_env_values");
    ASSERT_EQ(texts.size(), repaired + 1);
    EXPECT_THAT(texts.back(), testing::StartsWith(std::string("Attempted to set ") + name));
    set({{name, value}});
    ++repaired;
  }
  EXPECT_EQ(verify(31), 0);
}

TEST_F(EnvVerify, NumbersAreReadAsDecimalsWithBlanksAndTextBehind) {
  for (const char *value : {"4711", "  4711", "+4711", "\t4711 and more", "004711", "4711x"}) {
    set({{"VOSKPID", value}, {"VOSKORIG", value}});
    EXPECT_EQ(verify(kPid | kOrig), 0) << value;
    EXPECT_THAT(traced("vk_set_env_values"),
                ElementsAre("VOSKPID variable successfully set to 4711", "VOSKORIG variable successfully set to 4711"));
  }
}

TEST_F(EnvVerify, NumberThatIsNoneEqualsZero) {
  set({{"VOSKPID", "nonsense"}});
  EXPECT_EQ(verify(kPid, "tool", kNodeAddress, 0), 0);
}

TEST_F(EnvVerify, OnlyTheFirstCharactersOfAddressAndNameAreCompared) {
  set({{"VOSKADDR", std::string(kNodeAddress) + "/"}, {"VOSKPNAME", "toolbox"}});
  EXPECT_EQ(verify(kAddr | kPname), 0);
  set({{"VOSKADDR", std::string(kNodeAddress) + "and more"}});
  EXPECT_EQ(verify(kAddr | kPname, "", ""), 0);
  EXPECT_THAT(traced("vk_set_env_values"),
              ElementsAre("VOSKADDR variable successfully set to .", "VOSKPNAME variable successfully set to "));
}

TEST_F(EnvVerify, ResultDoesNotDependOnTheTrace) {
  const struct {
    const char *name;
    unsigned int mask;
    std::string meant, other;
  } kRows[] = {{"VOSKPID", kPid, "4711", "4712"},
               {"VOSKORIG", kOrig, "4711", "4712"},
               {"VOSKADDR", kAddr, kNodeAddress, "z/../...................."},
               {"VOSKPNAME", kPname, "tool", "Tool"}};
  const auto untraced = [](unsigned int mask) {
    return vk::vk_verify_env_values(0, nullptr, mask, "tool", kNodeAddress, '.', 4711);
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.name);
    set({{row.name, row.meant}});
    EXPECT_EQ(untraced(row.mask), 0);
    set({{row.name, row.other}});
    EXPECT_EQ(untraced(row.mask), 16);
    unset(row.name);
    EXPECT_EQ(untraced(row.mask), 16);
  }
}

}  // namespace
