// The built catalogues, read back with the platform's reader.

#include <gtest/gtest.h>
#include <nl_types.h>

#include <cstdlib>
#include <string>

#include "messages/messages.h"
#include "utils/conversions.h"

namespace {

const nl_catd kNotOpen = reinterpret_cast<nl_catd>(-1);

class open_catalogue {
 public:
  open_catalogue(const char *nlspath, const char *lang) {
    setenv("NLSPATH", (std::string(QX_BINARY_DIR "/messages/") + nlspath).c_str(), 1);
    setenv("LANG", lang, 1);
    handle_ = catopen(vk::kCatalogueName, 0);
  }
  open_catalogue(const open_catalogue &) = delete;
  open_catalogue &operator=(const open_catalogue &) = delete;
  ~open_catalogue() {
    if (found()) catclose(handle_);
  }
  bool found() const { return handle_ != kNotOpen; }
  const char *text(int number) const { return catgets(handle_, vk::kCatalogueSet, number, nullptr); }

 private:
  nl_catd handle_;
};

TEST(CatalogueSource, ThatCannotBeWrittenWholeIsAFailure) {
  const std::string make = QX_BINARY_DIR "/messages/make_catalogue_source";
  EXPECT_EQ(std::system((make + " >/dev/null").c_str()), 0);
  EXPECT_NE(std::system((make + " >/dev/full").c_str()), 0);
}

TEST(EnglishCatalogue, HoldsEveryTextAsTheTableDoes) {
  const open_catalogue catalogue("%L/%N", "en");
  ASSERT_TRUE(catalogue.found());
  for (int number = 1; number < VK_MESSAGE_COUNT; ++number) {
    ASSERT_NE(catalogue.text(number), nullptr) << number;
    EXPECT_STREQ(catalogue.text(number), vk::message_text(number)) << number;
  }
  EXPECT_EQ(catalogue.text(0), nullptr) << "numbers of a catalogue start at 1";
  EXPECT_EQ(catalogue.text(VK_MESSAGE_COUNT), nullptr);
}

TEST(GermanCatalogue, HoldsEveryMessageWithTheSameInsertsAndNumber) {
  const open_catalogue catalogue("%L/%N", "de");
  ASSERT_TRUE(catalogue.found());
  for (int number = 1; number < VK_MESSAGE_COUNT; ++number) {
    SCOPED_TRACE(number);
    ASSERT_NE(catalogue.text(number), nullptr);
    const std::string german = catalogue.text(number), english = vk::message_text(number);
    EXPECT_TRUE(vk::same_conversions(german.c_str(), english.c_str()));
    EXPECT_EQ(german.back(), '\n');
    EXPECT_EQ(german.substr(0, 9) == english.substr(0, 9), number != 17) << "2615-nnn, or the library's name";
    if (number != 19) {
      EXPECT_NE(german, english);
    }
  }
  EXPECT_NE(std::string(catalogue.text(7)).find("zulässige Länge"), std::string::npos) << "in UTF-8";
  EXPECT_EQ(catalogue.text(VK_MESSAGE_COUNT), nullptr);
}

TEST(Catalogues, AreFoundByThePatternsOfNlspath) {
  struct {
    const char *nlspath, *lang;
    bool found;
  } const rows[] = {
      {"%L/%N", "de", true},          {"%L/%N", "de_DE.UTF-8", false}, {"%l/%N", "de_DE.UTF-8", true},
      {"%l/vosk.cat", "de_AT", true}, {"de/%N", "fr_FR", true},        {"%l/%N", "C", false},
      {"%l/%N", "fr_FR", false},
  };
  for (const auto &row : rows)
    EXPECT_EQ(open_catalogue(row.nlspath, row.lang).found(), row.found) << row.nlspath << " with LANG=" << row.lang;
}

}  // namespace
