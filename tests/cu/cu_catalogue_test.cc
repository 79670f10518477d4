// Translated messages: where they are looked for, and when the default text is used instead.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "catalogue_files.h"
#include "current_error.h"
#include "messages/messages.h"
#include "support/interpose.h"

namespace {

const char kText[] = "%1$s has %2$d\n";

std::string report(const char *default_text = kText, int number = 7, int set = 1, const char *name = "vosk.cat") {
  cu_set_error_1(9, 0, name, set, number, default_text, "one", 2);
  return current_text();
}

TEST_F(CatalogueTest, TakesTheTextOfTheUsersLanguage) {
  compile("7 \"%1$s hat %2$d\\n\"\n");
  EXPECT_EQ(report(), "one hat 2\n");
  const cu_error_t error = current_error();
  EXPECT_EQ(error.id, 9);
  EXPECT_STREQ(error.catalogue, "vosk.cat");
  EXPECT_EQ(error.number, 7);
}

TEST_F(CatalogueTest, LetsTheTextPutTheInsertsInAnotherOrder) {
  compile("7 \"%2$05d|%1$-5s|%1$.2s|100%%\\n\"\n");
  EXPECT_EQ(report(), "00002|one  |on|100%\n");
  EXPECT_EQ(report("%s has %d\n"), "00002|one  |on|100%\n");
}

TEST_F(CatalogueTest, KeepsTheDefaultWhereTheCatalogueLacksTheMessage) {
  compile("7 \"%1$s hat %2$d\\n\"\n");
  EXPECT_EQ(report(kText, 8), "one has 2\n");
  EXPECT_EQ(report(kText, 0), "one has 2\n");
  EXPECT_EQ(report(kText, -1), "one has 2\n");
  EXPECT_EQ(report(kText, 7, 2), "one has 2\n");
  EXPECT_EQ(report(kText, 7, 0), "one has 2\n");
  EXPECT_EQ(report(kText, 7, -1), "one has 2\n");
  EXPECT_EQ(report(kText, 7, 1, "other.cat"), "one has 2\n");
  EXPECT_EQ(report(kText, 7, 1, ""), "one has 2\n");
  EXPECT_EQ(report(kText, 7, 1, nullptr), "one has 2\n");
}

TEST_F(CatalogueTest, KeepsTheDefaultWhereTheTextTakesOtherInserts) {
  const char *const texts[] = {
      "none",
      "%1$s",
      "%2$d",
      "%1$d %2$d",
      "%1$s %2$s",
      "%1$s %2$d %3$s",
      "%1$s %2$d %3$d",
      "%s",
      "%d %s",
      "%1$s %2$d %n",
      "%1$s %2$d %1$n",
      "%1$s %2$u",
      "%1$s %2$ld",
      "%1$s %2$d %m",
      "%1$s %2$d%",
      "%1$s %d",
      "%1$s %2$*2$n",
      "%1$s %2$c",
      "%1$ls %2$d",
      "%1$s %2$d %y",
      "%1$s %2$d %999$s",
      "%s%s%s%s%s",
      "%n%n%n%n",
      "%1$99999999s %2$d",
      "%p %d",
      "%1$s %2$d %3$*4$d",
  };
  for (const char *text : texts) {
    SCOPED_TRACE(text);
    compile(std::string("7 \"") + text + "\"\n");
    EXPECT_EQ(report(), "one has 2\n");
  }
}

// The text was formatted by the caller and no inserts follow it; the catalogue's text would read some.
TEST_F(CatalogueTest, KeepsATextThatIsFormattedAlready) {
  compile("7 \"%1$s hat %2$d\\n\"\n8 \"ohne\\n\"\n");
  cu_set_error_1(9, 0, "vosk.cat", 1, 7, "the text of one and 2\n");
  EXPECT_EQ(current_text(), "the text of one and 2\n");
  cu_set_error_1(9, 0, "vosk.cat", 1, 8, "with a % of its own\n");
  EXPECT_EQ(current_text(), "with a % of its own\n");
  cu_set_error_1(9, 0, "vosk.cat", 1, 8, "nothing to insert\n");
  EXPECT_EQ(current_text(), "ohne\n");
}

TEST_F(CatalogueTest, LooksInTheProgramsLocaleFirstAndLeavesItAlone) {
  compile("7 \"%1$s by LANG %2$d\"\n", "test");
  compile("7 \"%1$s by locale %2$d\"\n", "C.UTF-8");
  EXPECT_EQ(report(), "one by LANG 2");
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
  ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
  EXPECT_EQ(report(), "one by locale 2");
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
}

TEST_F(CatalogueTest, AsksTheEnvironmentWhereTheProgramsLocaleHasNone) {
  compile("7 \"%1$s by LANG %2$d\"\n", "test");
  ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
  EXPECT_EQ(report(), "one by LANG 2");
}

TEST_F(CatalogueTest, TakesALocaleThatIsNotToldForNone) {
  platform::Calls calls;
  calls.return_all("setlocale", 0);
  calls.during([] { return report(); });
  EXPECT_THAT(calls.log_of({"catopen"}),
              testing::ElementsAre("catopen(\"vosk.cat\", 0) = -1 ENOENT", "catopen(\"vosk.cat\", 1) = -1 ENOENT"));
}

TEST_F(CatalogueTest, FollowsLangAndNotLanguage) {
  compile("7 \"%1$s by LANG %2$d\"\n", "test");
  compile("7 \"%1$s by LANGUAGE %2$d\"\n", "other");
  setenv("LANGUAGE", "other", 1);
  EXPECT_EQ(report(), "one by LANG 2");
  unsetenv("LANGUAGE");
  unsetenv("LANG");
  EXPECT_EQ(report(), "one has 2\n");
}

TEST_F(CatalogueTest, TakesAnAbsolutePathAsItIs) {
  compile("7 \"%1$s anywhere %2$d\"\n", "elsewhere");
  EXPECT_EQ(report(kText, 7, 1, path("elsewhere").c_str()), "one anywhere 2");
  EXPECT_EQ(report(kText, 7, 1, std::string(10000, 'x').c_str()), "one has 2\n");
}

TEST_F(CatalogueTest, CutsALongText) {
  compile("7 \"%1$s %2$d" + std::string(9000, 'x') + "\"\n");
  EXPECT_EQ(report(), "one 2" + std::string(4103 - 5, 'x'));
}

TEST_F(CatalogueTest, KeepsErrnoWhetherACatalogueIsFoundOrNot) {
  errno = EXDEV;
  report();
  EXPECT_EQ(errno, EXDEV);
  compile("7 \"%1$s hat %2$d\\n\"\n");
  errno = EXDEV;
  report();
  EXPECT_EQ(errno, EXDEV);
}

TEST_F(CatalogueTest, ShowsTheGermanMessages) {
  setenv("NLSPATH", QX_BINARY_DIR "/messages/%l/%N", 1);
  setenv("LANG", "de_DE.UTF-8", 1);
  cu_set_error_1(22, 0, vk::kCatalogueName, 1, 40, vk_mesgtbl_vk_lib[40], "/stacks/file", 9);
  EXPECT_EQ(current_text().rfind("2615-021 libqx_vosk.a Fehler: Die alleinige Verwendung der\n"
                                 "\t VOSK-Fehlerstapeldatei\n"
                                 "\t\t /stacks/file\n",
                                 0),
            0U)
      << current_text();
  EXPECT_NE(current_text().find("lockf(): 9.\n"), std::string::npos);
  cu_set_error_1(41, 0, vk::kCatalogueName, 1, 43, vk_mesgtbl_vk_lib[43], "/f", 24, 5);
  EXPECT_NE(current_text().find("\n\t\t 24\n"), std::string::npos);
  EXPECT_NE(current_text().find("write():\n\t 5.\n"), std::string::npos);
  cu_set_error_1(1, 0, vk::kCatalogueName, 1, 17, vk_mesgtbl_vk_lib[17]);
  EXPECT_EQ(current_text(), "VOSK-Umgebung von einer zuvor eingerichteten Umgebung übernommen\n");
}

}  // namespace
