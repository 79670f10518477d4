// The search for the files of a directory that have an i-node.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *kRoutine = "vk_conv_base_64_inode";
constexpr std::size_t kSlot = 256;
constexpr std::uint64_t kInode = 1234567;
constexpr const char *kField = "5Oh2..";
constexpr std::uint64_t kBit36 = std::uint64_t{1} << 36;

// A slot as the search leaves it: the name, zeros up to 255 bytes, and the last byte as it was.
std::string slot_of(std::string_view name) {
  std::string slot(name);
  slot.resize(kSlot - 1, '\0');
  return slot + EdgeBuffer::kUntouched;
}
std::string slots_of(const std::vector<std::string> &names, std::size_t slots) {
  std::string all;
  for (const std::string &name : names) all += slot_of(name);
  all.resize(slots * kSlot, EdgeBuffer::kUntouched);
  return all;
}

struct Search {
  std::vector<platform::FakeEntry> entries;
  std::size_t slots;
  std::vector<std::string> found;
  int reads;
};

TEST(InodeSearch, ListsEveryNameOfTheNumberInDirectoryOrder) {
  const Search rows[] = {
      {{{"a", kInode}}, 2, {"a"}, 2},
      {{{".", 1}, {"..", 2}, {"a", 3}, {"b", kInode}, {"c", 4}},
       1,
       {"b"},
       4},  // the list is full: nothing more is read
      {{{".", 1}, {"..", 2}, {"a", 3}, {"b", kInode}, {"c", 4}}, 2, {"b"}, 6},
      {{{"z", kInode}, {"m", kInode}, {"a", kInode}}, 3, {"z", "m", "a"}, 3},
      {{{"z", kInode}, {"m", kInode}, {"a", kInode}}, 2, {"z", "m"}, 2},  // a partial list is a success
      {{{"z", kInode}, {"m", kInode}, {"a", kInode}}, 9, {"z", "m", "a"}, 4},
      {{{".", kInode}}, 1, {"."}, 1},  // any entry, also this one
      // Numbers that share their low 36 bits cannot be told apart.
      {{{"a", kInode + kBit36}, {"b", kInode + 1}, {"c", kInode + (std::uint64_t{5} << 60)}}, 3, {"a", "c"}, 4},
      {{{"deleted", 0}, {"a", kInode}}, 1, {"a"}, 2},
      {{{"", kInode}, {"a", kInode}}, 2, {"", "a"}, 2},
  };
  for (const Search &row : rows) {
    EdgeBuffer list(row.slots * kSlot);
    Calls calls;
    calls.fake_directory(row.entries);
    EXPECT_EQ(calls.during([&] {
      return vk::vk_conv_base_64_inode(0, nullptr, "/some/directory", kField, list.chars(),
                                       static_cast<int>(row.slots));
    }),
              0);
    EXPECT_EQ(files::difference(slots_of(row.found, row.slots), list.bytes()), "");
    std::vector<std::string> log(static_cast<std::size_t>(row.reads), "readdir_r(\"/some/directory\") = 0");
    log.insert(log.begin(), "opendir(\"/some/directory\") = pointer");
    log.push_back("closedir(\"/some/directory\") = 0");
    EXPECT_EQ(calls.log(), log);
  }
}

TEST(InodeSearch, LeavesTheListAloneWhereNothingMatches) {
  const std::vector<platform::FakeEntry> directories[] = {
      {}, {{"a", 1}, {"b", kInode + 1}}, {{"a", kInode << 1}, {"b", kInode >> 1}}};
  for (const auto &entries : directories) {
    EdgeBuffer list(2 * kSlot);
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          calls.fake_directory(entries);
          const int result = calls.during(
              [&] { return vk::vk_conv_base_64_inode(on, path, "/some/directory", kField, list.chars(), 2); });
          EXPECT_EQ(calls.count("closedir"), 1);
          EXPECT_EQ(calls.count("readdir_r"), static_cast<int>(entries.size()) + 1);
          return result;
        },
        -24,
        {trace_entry(kRoutine,
                     "Cannot locate the base-64 i-node 5Oh2.. (decimal 1234567) in directory /some/directory\n"
                     "Returning VOSK_FILE_MISSING(-24) to the caller\n")});
    EXPECT_TRUE(list.untouched());
  }
}

// A field of more than six digits asks for a number that no entry can have.
TEST(InodeSearch, FindsNothingForAFieldBeyondThirtySixBits) {
  EdgeBuffer list(kSlot);
  Calls calls;
  calls.fake_directory({{"a", kInode}, {"b", kInode + kBit36}});
  EXPECT_EQ(calls.during([&] { return vk::vk_conv_base_64_inode(0, nullptr, "/d", "5Oh2../", list.chars(), 1); }), -24);
  EXPECT_TRUE(list.untouched());
}

TEST(InodeSearch, TracesTheNumberOfMatchesAndTheFirst) {
  const struct {
    std::vector<platform::FakeEntry> entries;
    const char *field, *text;
  } rows[] = {
      {{{"one.stack", kInode}},
       kField,
       "1 matches to base-64 i-node 5Oh2.. (decimal 1234567) found in directory /d\nFirst match: one.stack\n"
       "Returning VOSK_SUCCESS(0) to the caller\n"},
      {{{"one.stack", kInode}, {"two.stack", kInode}},
       kField,
       "2 matches to base-64 i-node 5Oh2.. (decimal 1234567) found in directory /d\nFirst match: one.stack\n"
       "Returning VOSK_SUCCESS(0) to the caller\n"},
      {{{"big", 0xFFFFFFFF}},
       "zzzzz1",
       "1 matches to base-64 i-node zzzzz1 (decimal -1) found in directory /d\nFirst match: big\n"
       "Returning VOSK_SUCCESS(0) to the caller\n"},
  };
  for (const auto &row : rows) {
    EdgeBuffer list(3 * kSlot);
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          calls.fake_directory(row.entries);
          return calls.during([&] { return vk::vk_conv_base_64_inode(on, path, "/d", row.field, list.chars(), 3); });
        },
        0, {trace_entry(kRoutine, row.text)});
  }
}

TEST(InodeSearch, TakesANameOf255BytesWholeAndTracesItWithoutTheBytesBehindIt) {
  const std::string name(255, 'n');
  EdgeBuffer list(2 * kSlot);
  expect_result_and_trace(
      [&](int on, const char *path) {
        list.fill(EdgeBuffer::kUntouched);
        Calls calls;
        calls.fake_directory({{name, kInode}, {"short", kInode}});
        return calls.during([&] { return vk::vk_conv_base_64_inode(on, path, "/d", kField, list.chars(), 2); });
      },
      0,
      {trace_entry(kRoutine,
                   "2 matches to base-64 i-node 5Oh2.. (decimal 1234567) found in directory /d\nFirst match: " + name +
                       "\nReturning VOSK_SUCCESS(0) to the caller\n")});
  EXPECT_EQ(files::difference(slots_of({name, "short"}, 2), list.bytes()), "");
}

TEST(InodeSearch, EndsWhereTheDirectoryCannotBeReadOn) {
  for (int error : {EBADF, EIO, ENOENT, EOVERFLOW, ENAMETOOLONG}) {
    for (int readable = 0; readable <= 3; ++readable) {
      SCOPED_TRACE(std::to_string(error) + " after " + std::to_string(readable) + " entries");
      EdgeBuffer list(4 * kSlot);
      Calls calls;
      calls.fake_directory({{"a", 1}, {"b", kInode}, {"c", kInode}, {"d", kInode}});
      calls.fail_nth("readdir_r", readable + 1, error);
      const int result =
          calls.during([&] { return vk::vk_conv_base_64_inode(0, nullptr, "/d", kField, list.chars(), 4); });
      EXPECT_EQ(result, readable < 2 ? -24 : 0);
      const std::vector<std::string> before[] = {{}, {}, {"b"}, {"b", "c"}};
      EXPECT_EQ(files::difference(slots_of(before[readable], 4), list.bytes()), "");
      EXPECT_EQ(calls.count("readdir_r"), readable + 1);
      EXPECT_EQ(calls.count("closedir"), 1);
    }
  }
}

TEST(InodeSearch, DoesNotMindAFailedClose) {
  EdgeBuffer list(kSlot);
  Calls calls;
  calls.fake_directory({{"a", kInode}});
  calls.fail_nth("closedir", 1, EIO);
  EXPECT_EQ(calls.during([&] { return vk::vk_conv_base_64_inode(0, nullptr, "/d", kField, list.chars(), 1); }), 0);
}

TEST(InodeSearch, AnswersADirectoryThatCannotBeOpenedByItsErrno) {
  const struct {
    int error, code;
  } rows[] = {{EACCES, -13}, {ENOENT, -14}, {ENOTDIR, -14}, {EMFILE, -1}, {ENFILE, -1},
              {ENOMEM, -1},  {ELOOP, -1},   {ESTALE, -1},   {EIO, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.error);
    EdgeBuffer list(kSlot);
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          calls.fail_nth("opendir", 1, row.error);
          const int result =
              calls.during([&] { return vk::vk_conv_base_64_inode(on, path, "/d", kField, list.chars(), 1); });
          EXPECT_EQ(calls.count("readdir_r") + calls.count("closedir"), 0);
          return result;
        },
        row.code,
        {trace_entry(kRoutine, "Unable to open the directory /d - errno is " + std::to_string(row.error) + "\n")});
    EXPECT_TRUE(list.untouched());
  }
}

TEST(InodeSearch, RefusesInTheOrderDirectoryFieldList) {
  EdgeBuffer list(kSlot);
  constexpr const char *kNoDirectory =
      "Called with a NULL value for directory - cannot locate file without it\n"
      "Returning VOSK_INV_PARAM3(-4) to caller\n";
  constexpr const char *kNoField =
      "Called with a NULL value for inode64rep - cannot convert to file name\n"
      "Returning VOSK_INV_PARAM4(-5) to caller\n";
  constexpr const char *kNoList =
      "Called with a NULL pointer for file name list\nReturning VOSK_INV_PARAM5(-6) to caller\n";
  const struct {
    const char *directory, *field;
    char *list;
    int size, code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, nullptr, 0, -4, kNoDirectory}, {"", kField, list.chars(), 1, -4, kNoDirectory},
      {"/d", nullptr, nullptr, 0, -5, kNoField},        {"/d", "", list.chars(), 1, -5, kNoField},
      {"/d", kField, nullptr, 0, -6, kNoList},          {"/d", kField, nullptr, 1, -6, kNoList},
      {"/d", kField, list.chars(), 0, -6, kNoList},     {"/d", kField, list.chars(), -1, -6, kNoList},
  };
  for (const auto &row : rows) {
    const auto call = [&](int on, const char *path) {
      return vk::vk_conv_base_64_inode(on, path, row.directory, row.field, row.list, row.size);
    };
    expect_result_and_trace(call, row.code, {trace_entry(kRoutine, row.text)});
    Calls calls;
    calls.during([&] { return call(0, nullptr); });
    EXPECT_EQ(calls.count_all(), 0);
  }
  EXPECT_TRUE(list.untouched());
}

// --- Real directories ---

std::string field_of(const std::string &path) {
  char field[7] = {};
  EXPECT_EQ(vk::vk_get_base_64_inode(0, nullptr, path.c_str(), field), 0);
  return field;
}

std::vector<std::string> names_in(EdgeBuffer &list, std::size_t count) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < count; ++i) {
    const char *slot = list.chars() + i * kSlot;
    names.emplace_back(slot, strnlen(slot, kSlot - 1));  // nothing ends a name of 255 bytes
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(InodeSearch, FindsTheHardLinksOfARealFile) {
  files::TemporaryDirectory directory;
  const std::string longest(255, 'l');
  ASSERT_TRUE(files::write(directory / "file", ""));
  ASSERT_TRUE(files::write(directory / "other", ""));
  ASSERT_EQ(link((directory / "file").c_str(), (directory / longest).c_str()), 0);
  ASSERT_EQ(link((directory / "file").c_str(), (directory / "link").c_str()), 0);
  const std::string field = field_of(directory / "file");
  EdgeBuffer list(4 * kSlot);
  ASSERT_EQ(vk::vk_conv_base_64_inode(0, nullptr, directory.path().c_str(), field.c_str(), list.chars(), 4), 0);
  EXPECT_THAT(names_in(list, 3), ElementsAre("file", "link", longest));
  EXPECT_EQ(list.bytes().substr(3 * kSlot), std::string(kSlot, EdgeBuffer::kUntouched));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(list.bytes()[i * kSlot + 255], EdgeBuffer::kUntouched);

  EdgeBuffer two(2 * kSlot);
  EXPECT_EQ(vk::vk_conv_base_64_inode(0, nullptr, directory.path().c_str(), field.c_str(), two.chars(), 2), 0);
  EXPECT_NE(names_in(two, 2)[0], names_in(two, 2)[1]);
}

TEST(InodeSearch, LeavesNoDescriptorOpen) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "file", ""));
  const std::string field = field_of(directory / "file");
  const auto before = files::descriptors();
  EdgeBuffer list(kSlot);
  EXPECT_EQ(vk::vk_conv_base_64_inode(0, nullptr, directory.path().c_str(), field.c_str(), list.chars(), 1), 0);
  EXPECT_EQ(vk::vk_conv_base_64_inode(0, nullptr, directory.path().c_str(), "zzzzzz", list.chars(), 1), -24);
  EXPECT_EQ(files::descriptors(), before);
}

TEST(InodeSearch, MeetsTheRealFailuresOfADirectory) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "file", ""));
  ASSERT_EQ(mkdir((directory / "closed").c_str(), 0), 0);
  EdgeBuffer list(kSlot);
  const auto search = [&](const char *name) {
    return vk::vk_conv_base_64_inode(0, nullptr, (directory / name).c_str(), kField, list.chars(), 1);
  };
  EXPECT_EQ(search("missing"), -14);
  EXPECT_EQ(search("file"), -14);
  EXPECT_EQ(vk::vk_conv_base_64_inode(0, nullptr, std::string(5000, 'x').c_str(), kField, list.chars(), 1), -1);
  if (geteuid() != 0) {
    EXPECT_EQ(search("closed"), -13);
    return;
  }
  ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
  const sandbox::Outcome outcome = sandbox::run_child([&] {
    ASSERT_TRUE(sandbox::drop_to(sandbox::kNobody));
    EXPECT_EQ(search("closed"), -13);
  });
  EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
}

}  // namespace
