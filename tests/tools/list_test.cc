// vosk list: a line per stack, and whether it takes the next recording.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <random>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;
using tool::json;

namespace {

std::string stack_path(const std::string &process, int pid, const char *time = "20231114.221320") {
  return std::string(sandbox::kStacks) + "/" + process + "." + std::to_string(pid) + "." + time;
}

std::string name_of(const std::string &path) {
  return path.substr(path.rfind('/') + 1);
}

void make_stack(const std::string &path, const builder::record &record) {
  tool::write_stack(path, builder::bytes(1));
  builder::record r = record;
  r.at(r.seconds, 0, tool::inode_of(path));
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(path, m.file());
}

json line_of(const std::vector<json> &lines, const std::string &path) {
  for (const json &line : lines)
    if (line["file"] == path) return line;
  ADD_FAILURE() << path << " is not listed";
  return nullptr;
}

// Makes this process the owner of the environment of one stack after the other.
void use_stack(const std::string &path) {
  setenv("VOSKSTACK", path.c_str(), 1);
  for (const char *name : {"VOSKORIG", "VOSKPID"}) setenv(name, std::to_string(getpid()).c_str(), 1);
  setenv("VOSKADDR", builder::kAddress, 1);
  setenv("VOSKPNAME", "p", 1);
}

int push(const std::string &text, const std::string &detail) {
  vk_eid_t eid = "";
  return vk_push_stack_1(&eid, nullptr, "r", "p", "s", "v", 1, 0, detail.c_str(), nullptr, "c", 1, 1, "%s",
                         text.c_str());
}

// A record with a body of 160 bytes.
int push_small() {
  return push("0123456789", "detail...");
}

}  // namespace

TEST(List, PrintsALineForEachStack) {
  builder::record r;
  r.arguments.clear();
  r.default_text = "text";
  r.detail = std::string(sandbox::kDumps) + "/copy.1.20231114.221320";
  make_stack(stack_path("gone", 4194303), r);
  const tool::result shown = tool::run({"vosk", "list"});
  EXPECT_EQ(shown.status, 0);
  const std::string name = name_of(stack_path("gone", 4194303));
  EXPECT_EQ(shown.out,
            "STACK                         OWNER  ORIGINATOR    RECORDS  FROM                              TO          "
            "                "
            "      WRAPPED  DAMAGE  DETAILS     NEXT PUSH\n" +
                name +
                "  root   4194303 gone  1        2023-11-14 22:13:20.000000 +0000  2023-11-14 22:13:20.000000 +0000  "
                "no       0       1 "
                "(1 gone)  taken\n");
}

TEST(List, CountsDetailFilesThatAreThereAndGone) {
  builder::record r;
  r.detail = std::string(sandbox::kDumps) + "/copy";
  ASSERT_TRUE(files::write(r.detail, "x"));
  make_stack(stack_path("a", 1), r);
  r.detail = "/etc/passwd";
  make_stack(stack_path("b", 1), r);
  r.detail = std::string(sandbox::kDumps) + "/../stacks/copy";
  make_stack(stack_path("c", 1), r);
  const auto lines = tool::json_lines(tool::run({"vosk", "list", "--json"}).out);
  EXPECT_EQ(line_of(lines, stack_path("a", 1))["detail_files"], 1);
  EXPECT_EQ(line_of(lines, stack_path("a", 1))["detail_files_missing"], 0);
  EXPECT_EQ(line_of(lines, stack_path("b", 1))["detail_files"], 0);
  EXPECT_EQ(line_of(lines, stack_path("c", 1))["detail_files"], 0);
}

// The process id alone would take a later process for the originator.
TEST(List, TellsALivingOriginatorFromALaterProcessWithItsId) {
  char now[32], before[32];
  const time_t t = time(nullptr), earlier = t - 86400;
  tm utc{};
  strftime(now, sizeof now, "%Y%m%d.%H%M%S", gmtime_r(&t, &utc));
  strftime(before, sizeof before, "%Y%m%d.%H%M%S", gmtime_r(&earlier, &utc));
  const pid_t child = fork();
  if (child == 0) {
    for (;;) pause();
  }
  make_stack(stack_path("a", child, now), {});
  make_stack(stack_path("b", child, before), {});
  make_stack(stack_path("c", 4194303, now), {});
  make_stack(std::string(sandbox::kStacks) + "/no-name", {});
  const auto lines = tool::json_lines(tool::run({"vosk", "list", "--json"}).out);
  EXPECT_EQ(line_of(lines, stack_path("a", child, now))["originator_alive"], true);
  EXPECT_THAT(tool::run({"vosk", "list"}).out, HasSubstr("  " + std::to_string(child) + " alive  "));
  EXPECT_EQ(line_of(lines, stack_path("b", child, before))["originator_alive"], false);
  EXPECT_EQ(line_of(lines, stack_path("c", 4194303, now))["originator_alive"], false);
  EXPECT_EQ(line_of(lines, std::string(sandbox::kStacks) + "/no-name")["originator"], nullptr);
  (void)kill(child, SIGKILL);
  (void)waitpid(child, nullptr, 0);
}

TEST(List, TellsAnOwnerWithoutANameByItsNumber) {
  make_stack(stack_path("a", 1), {});
  if (chown(stack_path("a", 1).c_str(), 3000000, 0) != 0) CANNOT_RUN_HERE("needs users of any number");
  EXPECT_EQ(tool::json_lines(tool::run({"vosk", "list", "--json"}).out).at(0)["owner"], "3000000");
}

TEST(List, TellsStoppedStacksFromGoodOnesAsTheNextPushDoes) {
  std::mt19937 random(12);
  const auto text = [&](std::size_t longest) { return std::string(1 + random() % longest, 'x'); };
  std::vector<std::string> stopped, good;
  for (int i = 0; stopped.size() < 200; ++i) {
    ASSERT_LT(i, 2000);
    use_stack(stack_path("stopped" + std::to_string(i), getpid()));
    int refused = 0;
    for (int n = 0; n < 300 && refused < 3; ++n) refused = push(text(60), text(500)) == 24 ? refused + 1 : 0;
    if (refused == 3) stopped.emplace_back(getenv("VOSKSTACK"));
  }
  for (int i = 0; i < 200; ++i) {
    use_stack(stack_path("good" + std::to_string(i), getpid()));
    for (auto n = random() % 20; n < 20; ++n) ASSERT_EQ(push(text(60), text(500)), 0);
    good.emplace_back(getenv("VOSKSTACK"));
  }
  const auto lines = tool::json_lines(tool::run({"vosk", "list", "--json"}).out);
  const auto failed = tool::json_lines(tool::run({"vosk", "list", "--json", "--failed"}).out);
  std::size_t refusing = 0;
  for (const json &line : lines) refusing += line["next_push_taken"] == false ? 1 : 0;
  EXPECT_EQ(failed.size(), refusing);
  EXPECT_GE(refusing, 150u);

  ASSERT_EQ(unsetenv("VOSKDEBUG"), 0);
  for (const auto *names : {&stopped, &good}) {
    for (const std::string &path : *names) {
      use_stack(path);
      const int code = push_small();
      const bool taken = line_of(lines, path)["next_push_taken"] == true;
      ASSERT_EQ(code, taken ? 0 : 24) << path;
      EXPECT_TRUE(taken || names == &stopped) << path;
    }
  }
  const auto newest = tool::json_lines(tool::run({"vosk", "report", "--json", "-n", "1", good[0]}).out);
  EXPECT_EQ(newest.back()["length"], 160) << "the size that is foretold";
}

TEST(List, NamesWhyAStackRefusesAndTheRemedy) {
  builder::model m;
  builder::record r;
  unsigned refused = 0;
  for (unsigned i = 0; i < 1000 && refused < 20; ++i) {
    r.detail = std::string(40 + 97 * i % 300, 'x');
    refused = m.push(builder::record_bytes(r.at(1700000000 + i, 0))) ? 0 : refused + 1;
  }
  ASSERT_EQ(refused, 20u);
  tool::write_stack(stack_path("stopped", 1), m.file());
  EXPECT_THAT(tool::run({"vosk", "list", "--failed"}).out,
              testing::ContainsRegex(
                  "refused: reclamation reads [0-9]+ at offset [0-9]+ as a record's length, which leads past the end "
                  "of the file; set VOSKRECLAIM=whole for the processes that record into it\n"));
}

TEST(List, HasAnExitStatusForEveryOutcome) {
  EXPECT_EQ(tool::run({"vosk", "list"}).status, 4);
  make_stack(stack_path("a", 1), {});
  EXPECT_EQ(tool::run({"vosk", "list"}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "list", "--failed"}).status, 4);
  EXPECT_EQ(tool::run({"vosk", "list", "--help"}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "list", "--no-such-option"}).status, 2);
  builder::bytes damaged = builder::never_wrapped_file();
  damaged[24] ^= 1;
  tool::write_stack(stack_path("b", 1), damaged);
  EXPECT_EQ(tool::run({"vosk", "list"}).status, 3);
  EXPECT_EQ(tool::run({"vosk", "list", "/var/adm/vosk/missing"}).status, 4);
  ASSERT_EQ(chmod(stack_path("b", 1).c_str(), 0), 0);
  EXPECT_EQ(tool::run({"vosk", "list"}, tool::options::without_power()).status, 1);
}
