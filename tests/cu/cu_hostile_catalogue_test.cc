// Catalogues that were cut, overwritten or made up. The platform's reader is not above every damage, so each is tried
// in children with a time limit: one that only opens the catalogue and looks every message up, one that reports all
// messages through libqx_cu. Where the first lives, so must the second.

#include <gtest/gtest.h>
#include <nl_types.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <random>
#include <string>

#include "catalogue_files.h"
#include "current_error.h"
#include "messages/messages.h"

namespace {

constexpr int kMessages = VK_MESSAGE_COUNT - 1;

void report(int number) {
  const char *text = vk_mesgtbl_vk_lib[number];
  switch (number) {
    case 18:
      cu_set_error_1(number, 0, vk::kCatalogueName, 1, number, text, 1024);
      break;
    case 36:
    case 38:
    case 39:
    case 40:
    case 42:
      cu_set_error_1(number, 0, vk::kCatalogueName, 1, number, text, "/a/file", 28);
      break;
    case 43:
      cu_set_error_1(number, 0, vk::kCatalogueName, 1, number, text, "/a/file", 24, 5);
      break;
    default:
      cu_set_error_1(number, 0, vk::kCatalogueName, 1, number, text, "/first", "/second", "/third");
  }
}

// The exit status of `work` in a child, or -1 if a signal ended it.
template <typename Work>
int in_child(Work work) {
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_DUMPABLE, 0);
    for (const int number : {SIGBUS, SIGSEGV, SIGFPE, SIGABRT}) signal(number, SIG_DFL);
    alarm(20);
    _exit(work());
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int look_everything_up() {
  const nl_catd catalogue = catopen(vk::kCatalogueName, 0);
  if (catalogue == reinterpret_cast<nl_catd>(-1)) return 0;
  std::size_t total = 0;
  for (int number = 1; number <= kMessages; ++number)
    total += std::strlen(catgets(catalogue, 1, number, vk_mesgtbl_vk_lib[number]));
  catclose(catalogue);
  return total != 0 ? 0 : 1;
}

int report_everything() {
  for (int number = 1; number <= kMessages; ++number) {
    report(number);
    const cu_error_t error = current_error();
    if (error.id != number || error.number != number || std::strlen(error.text) > 4103) return 1;
  }
  return 0;
}

// How many of the damaged catalogues the platform's reader survives.
class HostileCatalogue : public CatalogueTest {
 protected:
  void try_bytes(const std::string &bytes) {
    write_bytes(bytes);
    ++tried_;
    if (in_child(look_everything_up) != 0) return;
    ++readable_;
    EXPECT_EQ(in_child(report_everything), 0) << "catalogue " << tried_;
  }
  const std::string good_ = bytes_of(QX_BINARY_DIR "/messages/de/vosk.cat");
  int tried_ = 0, readable_ = 0;
};

TEST_F(HostileCatalogue, CutAtAnyPlaceGivesTheDefaultTexts) {
  ASSERT_GT(good_.size(), 12000U);
  for (std::size_t size = 0; size < good_.size(); size += size < 64 ? 1 : 251) try_bytes(good_.substr(0, size));
  EXPECT_EQ(readable_, tried_);

  write_bytes(good_.substr(0, 4000));
  EXPECT_EQ(in_child([] {
              report(13);
              return current_text() ==
                             "libqx_vosk.a Attention: An invalid VOSK Error Identifier was provided\n"
                             "\t to the /first routine.\n"
                         ? 0
                         : 1;
            }),
            0);
}

TEST_F(HostileCatalogue, WithBytesOverwrittenIsSurvived) {
  std::mt19937 random(99);
  for (int round = 0; round < 200; ++round) {
    std::string bytes = good_;
    for (int count = 1 + static_cast<int>(random() % 20); count > 0; --count)
      bytes[12 + random() % (bytes.size() - 12)] = static_cast<char>(random());
    try_bytes(bytes);
  }
  EXPECT_GT(readable_, tried_ / 2);
}

TEST_F(HostileCatalogue, WithPercentSignsEverywhereIsSurvived) {
  std::mt19937 random(5);
  const std::string letters = "%%%%nsd$*123.lh";
  const std::size_t texts = good_.find("libqx_vosk.a");
  ASSERT_NE(texts, std::string::npos);
  for (int round = 0; round < 100; ++round) {
    std::string bytes = good_;
    for (std::size_t at = texts; at < bytes.size(); ++at)
      if (bytes[at] != '\0' && random() % 4 == 0) bytes[at] = letters[random() % letters.size()];
    try_bytes(bytes);
  }
  EXPECT_EQ(readable_, tried_);
}

TEST_F(HostileCatalogue, OfRandomBytesIsNone) {
  std::mt19937 random(1);
  for (int round = 0; round < 100; ++round) {
    std::string bytes(random() % 4000, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random());
    try_bytes(bytes);
  }
  EXPECT_EQ(readable_, tried_);
}

TEST_F(HostileCatalogue, ThatIsNoFileIsNone) {
  std::filesystem::create_directory(path());
  EXPECT_EQ(in_child(report_everything), 0);
  std::filesystem::remove(path());
  std::filesystem::create_symlink("vosk.cat", path());
  EXPECT_EQ(in_child(report_everything), 0);
  std::filesystem::remove(path());
  std::filesystem::create_symlink("/dev/zero", path());
  EXPECT_EQ(in_child(report_everything), 0);
}

}  // namespace
