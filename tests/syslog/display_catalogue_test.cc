// The line of an identifier in the user's language, and catalogues that must not be trusted. Real catalogues, real
// libqx_cu.
#include <gmock/gmock.h>
#include <qx_vosk.h>
#include <sys/mount.h>

#include <clocale>

#include "cu/catalogue_files.h"
#include "cu/current_error.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

constexpr char kEid[] = "75Oh2...2zIZ/.7S..XO.8....................";
const std::string kDefault = std::string("2615-000 ") + kEid + "\n";

class DisplayCatalogue : public CatalogueTest {
 protected:
  DisplayCatalogue() {
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "VOSKDEBUG"}) environment_.unset(name);
  }

  static std::string shown() {
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_display_fid_main_1(kEid, 0), 0);
    return testing::internal::GetCapturedStdout();
  }

  platform::Environment environment_;
};

TEST_F(DisplayCatalogue, TextOfTheCatalogueIsUsed) {
  compile("19 \"2615-000 Kennung <%1$s>\\n\"\n");
  EXPECT_EQ(shown(), std::string("2615-000 Kennung <") + kEid + ">\n");
}

TEST_F(DisplayCatalogue, TextMayHaveWidthsPercentsOrAPlainConversion) {
  const std::pair<const char *, std::string> rows[] = {
      {"%s", kEid},
      {"[%1$44s]", std::string("[  ") + kEid + "]"},
      {"[%1$-44s]", std::string("[") + kEid + "  ]"},
      {"100%% %1$s", std::string("100% ") + kEid},
      {"%1$s, again %1$s", std::string(kEid) + ", again " + kEid},
  };
  for (const auto &[text, line] : rows) {
    compile(std::string("19 \"") + text + "\"\n");
    EXPECT_EQ(shown(), line) << text;
  }
}

TEST_F(DisplayCatalogue, HostileTextsGiveWayToTheDefault) {
  for (const char *text : {"no conversion",
                           "",
                           "%n",
                           "%1$s%n",
                           "%1$n",
                           "%s %s",
                           "%1$s %2$s",
                           "%2$s",
                           "%d",
                           "%1$d",
                           "%m",
                           "%1$s %m",
                           "%",
                           "%1$s %",
                           "%1$",
                           "%*s",
                           "%1$*2$s",
                           "%.*s",
                           "%1$s %s",
                           "%s%s%s%s%s%s%s%s",
                           "%lc",
                           "%ls",
                           "%S",
                           "%C",
                           "%1$99999999999s",
                           "%65536s",
                           "%0$s",
                           "%1$hs",
                           "%k",
                           "%1$s %9999$s"}) {
    compile(std::string("19 \"") + text + "\"\n");
    EXPECT_EQ(shown(), kDefault) << text;
  }
}

TEST_F(DisplayCatalogue, MissingMessageOrDamagedCatalogueGivesWayToTheDefault) {
  EXPECT_EQ(shown(), kDefault) << "no catalogue";
  compile("18 \"another\"\n");
  EXPECT_EQ(shown(), kDefault) << "no message 19";
  compile("19 \"right\"\n");
  const std::string bytes = bytes_of(path());
  for (const std::string &damaged : {std::string(), bytes.substr(0, 1), bytes.substr(0, bytes.size() / 2),
                                     std::string(bytes.size(), '\0'), std::string(5000, 'x')}) {
    write_bytes(damaged);
    EXPECT_EQ(shown(), kDefault) << damaged.size();
  }
}

TEST_F(DisplayCatalogue, CatalogueIsClosedAgain) {
  compile("19 \"%1$s\"\n");
  shown();
  const auto before = files::descriptors();
  platform::Calls calls;
  testing::internal::CaptureStdout();
  calls.during([] { vk_display_fid_main_1(kEid, 0); });
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(files::descriptors(), before);
  EXPECT_EQ(calls.count("catopen"), 2) << "the locale C has none; the second attempt goes by LANG";
  EXPECT_EQ(calls.count("catclose"), 1);
}

// A locale under a name of its own: the platform's "C.utf8" in a directory that LOCPATH names.
TEST_F(DisplayCatalogue, LanguageOfTheLocaleComesBeforeTheOneOfLang) {
  const files::TemporaryDirectory locales;
  std::error_code error;
  std::filesystem::create_directory_symlink("/usr/lib/locale/C.utf8", locales / "xx_XX", error);
  environment_.set("LOCPATH", locales.path());
  environment_.set("LC_ALL", "xx_XX");
  if (std::setlocale(LC_ALL, "") == nullptr) CANNOT_RUN_HERE("no locale C.utf8 in /usr/lib/locale");
  std::setlocale(LC_ALL, "C");
  compile("19 \"lang %1$s\\n\"\n");
  EXPECT_EQ(shown(), std::string("lang ") + kEid + "\n") << "the locale has no catalogue";
  compile("19 \"locale %1$s\\n\"\n", "xx_XX");
  EXPECT_EQ(shown(), std::string("locale ") + kEid + "\n");
}

TEST_F(DisplayCatalogue, GermanCatalogueIsFoundByLanguage) {
  environment_.set("NLSPATH", QX_BINARY_DIR "/messages/%l/%N");
  environment_.set("LANG", "de_DE.UTF-8");
  EXPECT_EQ(shown(), kDefault) << "this line is the same in German";
  EXPECT_EQ(vk_display_fid_main_1("too short", 0), 27);
  EXPECT_EQ(current_error().id, 27);
  EXPECT_EQ(current_error().number, 13);
  EXPECT_EQ(current_text(),
            "libqx_vosk.a Achtung: Der Routine vk_display_fid wurde eine ungültige\n"
            "\t VOSK-Fehlerkennung übergeben.\n");
}

TEST_F(DisplayCatalogue, RefusalCanBeReadBackFromLibqxCu) {
  EXPECT_EQ(vk_display_fid_1(""), 27);
  EXPECT_EQ(current_text(),
            "libqx_vosk.a Attention: An invalid VOSK Error Identifier was provided\n"
            "\t to the vk_display_fid routine.\n");
  shown();
  EXPECT_EQ(current_error().id, 0);
}

// Without NLSPATH the platform looks where catalogues are installed.
TEST_F(DisplayCatalogue, InstalledCatalogueIsFoundWithoutAPath) {
  compile("19 \"installed %1$s\\n\"\n");
  const std::string bytes = bytes_of(path());
  environment_.unset("NLSPATH");
  environment_.set("LANG", "qq_QQ");
  RUN_IN_SANDBOX(sandbox::Options(), [&] {
    ASSERT_EQ(mount("tmpfs", "/usr/share/locale", "tmpfs", 0, ""), 0);
    EXPECT_EQ(shown(), kDefault);
    std::filesystem::create_directories("/usr/share/locale/qq/LC_MESSAGES");
    ASSERT_TRUE(files::write("/usr/share/locale/qq/LC_MESSAGES/vosk.cat", bytes));
    EXPECT_EQ(shown(), std::string("installed ") + kEid + "\n");
  });
}

}  // namespace
