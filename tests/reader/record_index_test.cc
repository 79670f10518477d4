// Records of many identifiers, found one after the other while their files come and go.
#include "tools/reader/record_index.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "reader/builder.h"
#include "support/files.h"

namespace {

constexpr std::uint64_t kStart = 1700000000;

// A stack with records that were made in one second after the other.
std::string bytes_of(const std::vector<std::string> &eids) {
  builder::model m;
  for (const std::string &eid : eids) {
    builder::record r;
    r.eid = eid;
    r.seconds = kStart + static_cast<std::uint64_t>(&eid - eids.data());
    EXPECT_TRUE(m.push(builder::record_bytes(r)));
  }
  return {m.file().begin(), m.file().end()};
}

// Makes a stack with one record, which names the file's own i-node, and returns its identifier.
std::string make_stack(const std::string &path) {
  EXPECT_TRUE(files::write(path, ""));
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0);
  const std::string eid = builder::stack_eid(st.st_ino, kStart, 0);
  EXPECT_TRUE(files::write(path, bytes_of({eid})));
  return eid;
}

}  // namespace

TEST(RecordIndex, KeepsTheFilesThatWereUsedLast) {
  const files::TemporaryDirectory dir;
  std::vector<std::string> eids;
  for (int i = 0; i < 65; ++i) eids.push_back(make_stack(dir / std::to_string(i)));
  vosk::record_index index(dir.path(), {});
  for (const std::string &eid : eids) {
    const vosk::found_record found = index.find(eid);
    ASSERT_NE(found.what, nullptr);
    EXPECT_EQ(found.file->path, dir / std::to_string(&eid - eids.data()));
    EXPECT_EQ(vosk::identifier_text(found.what->eid), eid);
  }
  for (const char *gone : {"0", "1", "64"}) ASSERT_EQ(unlink((dir / gone).c_str()), 0);
  EXPECT_EQ(index.find(eids[0]).what, nullptr) << "64 are kept, and this was used before all others";
  EXPECT_NE(index.find(eids[1]).what, nullptr);
  EXPECT_NE(index.find(eids[64]).what, nullptr);
}

TEST(RecordIndex, HasNothingOfWhatIsNotThere) {
  const files::TemporaryDirectory dir;
  const std::string eid = make_stack(dir / "a"),
                    other = eid.substr(0, 7) + builder::digits(kStart + 1, 6) + eid.substr(13);
  vosk::record_index index(dir.path(), {});
  EXPECT_NE(index.find(eid).what, nullptr);
  EXPECT_EQ(index.find(other).what, nullptr);
  ASSERT_TRUE(files::write(dir / "a", bytes_of({eid, other})));
  EXPECT_NE(index.find(other).what, nullptr) << "it has grown since";
}

TEST(RecordIndex, LosesACopyWhoseArchiveGoes) {
  const files::TemporaryDirectory dir;
  const std::string there = builder::stack_eid(builder::kInode, kStart, 0),
                    missing = builder::stack_eid(builder::kInode, kStart + 1, 0);
  ASSERT_EQ(mkdir((dir / "stacks").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(dir / "stacks/a", bytes_of({there})));
  ASSERT_EQ(std::system(("tar cf " + dir / "all.tar" + " -C " + dir.path() + " stacks/a").c_str()), 0);
  vosk::record_index index(dir / "none", {dir / "all.tar"});
  const vosk::found_record found = index.find(there);
  ASSERT_NE(found.what, nullptr);
  EXPECT_EQ(found.file->path, dir / "all.tar/stacks/a");
  ASSERT_EQ(unlink((dir / "all.tar").c_str()), 0);
  EXPECT_EQ(index.find(missing).what, nullptr);
  EXPECT_EQ(index.find(there).what, nullptr);
}
