// Which processes a node has, as far as its /proc tells.
#include "tools/reader/processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/files.h"
#include "tools/reader/number.h"
#include "tools/reader/proc_file.h"

namespace {

// A /proc of the test's own, until the end of the body.
class proc {
 public:
  proc() : mounted_(mount("tmpfs", "/proc", "tmpfs", 0, "mode=0755") == 0) {}
  ~proc() {
    if (mounted_) (void)umount2("/proc", MNT_DETACH);
  }
  proc(const proc &) = delete;
  proc &operator=(const proc &) = delete;
  bool mounted() const { return mounted_; }

  static void add(int pid, const std::string &state, const std::string &threads, const std::string &start,
                  const std::string &ids = "") {
    const std::string directory = "/proc/" + std::to_string(pid);
    ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
    std::string stat = std::to_string(pid) + " (a name) " + state;
    for (int field = vosk::kParent; field < 52; ++field)
      stat += " " + (field == vosk::kThreads ? threads : field == vosk::kStart ? start : "0");
    ASSERT_TRUE(files::write(directory + "/stat", stat + "\n"));
    ASSERT_TRUE(files::write(directory + "/status", "Name:\ta name\n" + (ids.empty() ? "" : "NSpid:\t" + ids + "\n")));
    ASSERT_TRUE(files::write(directory + "/environ", ""));
  }

 private:
  bool mounted_;
};

constexpr std::int64_t kLongAgo = 1000, kFarOff = std::int64_t{1} << 40;
const std::string kLater = "400000000000";  // clock ticks since the start of the node

bool is_known(const vosk::process_table &table, int pid, std::int64_t seconds = kFarOff) {
  return table.with_id(pid, seconds) != nullptr;
}

}  // namespace

TEST(Processes, AreThoseThatAreNotOver) {
  std::string why;
  std::optional<vosk::process_table> table, without_first;
  {
    const proc shown;
    if (!shown.mounted()) CANNOT_RUN_HERE("no /proc of its own");
    proc::add(getpid() + 10, "S", "1", "1");
    proc::add(getpid(), "R", "1", "1");
    without_first = vosk::process_table::read(why);
    proc::add(1, "S", "1", "1");
    proc::add(1000001, "Z", "1", "1");
    proc::add(1000002, "X", "1", "1");
    proc::add(1000003, "Z", "2", "1");
    proc::add(1000004, "X", "2", "1");
    proc::add(1000005, "S", "none", kLater);
    proc::add(1000006, "S", "1", "none");
    proc::add(1000007, "S", "1", kLater);
    proc::add(1000008, "S", "1", "1", "1000008\tnone\t7");
    ASSERT_EQ(mkdir("/proc/9x", 0755), 0);
    table = vosk::process_table::read(why);
  }
  EXPECT_FALSE(without_first) << "it cannot be all";
  EXPECT_EQ(why, "/proc does not show all processes");
  ASSERT_TRUE(table);
  EXPECT_EQ(table->unreadable(), 0u);
  for (const int over : {1000001, 1000002}) EXPECT_FALSE(is_known(*table, over)) << over;
  for (const int there : {1, 1000003, 1000004, 1000008, 7}) EXPECT_TRUE(is_known(*table, there)) << there;
  EXPECT_FALSE(is_known(*table, 9));
  EXPECT_FALSE(is_known(*table, 1000007, kLongAgo)) << "it was started later";
  // Where the start cannot be told, it may have been there always.
  for (const int untold : {1000005, 1000006}) EXPECT_TRUE(is_known(*table, untold, kLongAgo)) << untold;
}

TEST(ProcFile, IsReadAsFarAsIsAskedFor) {
  const auto whole = vosk::proc_file(getpid(), "maps", 1 << 20), start = vosk::proc_file(getpid(), "maps", 100);
  ASSERT_TRUE(whole && start);
  EXPECT_GT(whole->size(), 100u);
  EXPECT_EQ(*start, whole->substr(0, 100));
}

template <class Number>
class Numbers : public testing::Test {};
using every_number = testing::Types<int, unsigned, long, unsigned long long>;
TYPED_TEST_SUITE(Numbers, every_number);

TYPED_TEST(Numbers, AreWholeTextsAndFit) {
  TypeParam number = 0;
  EXPECT_TRUE(vosk::parse_number("12", number));
  EXPECT_EQ(number, TypeParam{12});
  for (const char *other : {"", "x", "5x", "99999999999999999999"})
    EXPECT_FALSE(vosk::parse_number(other, number)) << other;
}
