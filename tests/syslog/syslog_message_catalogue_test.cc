// Descriptions and labels from a real catalogue.
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <climits>

#include "cu/catalogue_files.h"

namespace {

class SyslogMessageCatalogue : public CatalogueTest {
 protected:
  std::string text(const vk_syslog_tmpl_t &tmpl) const {
    const nl_catd catalogue = catopen(path().c_str(), 0);
    const std::int32_t value = 28;
    char buffer[946];
    vk_mk_syslog_msg_1(&tmpl, &value, sizeof value, buffer, sizeof buffer, catalogue);
    if (catalogue != reinterpret_cast<nl_catd>(-1)) catclose(catalogue);
    return buffer;
  }
};

const vk_syslog_field_t kField = {4, 2, 9, "label", 1};
const vk_syslog_tmpl_t kTemplate = {0, "title", 1, 7, "text", 1, &kField};

TEST_F(SyslogMessageCatalogue, TextsOfTheCatalogueStandInTheirPlaces) {
  compile("7 \"Beschreibung\"\n$set 2\n9 \"Beschriftung\"\n");
  EXPECT_EQ(text(kTemplate), "title\nBeschreibung\nBeschriftung\n28\n");
}

TEST_F(SyslogMessageCatalogue, DefaultsStandInForWhatTheCatalogueLacks) {
  EXPECT_EQ(text(kTemplate), "title\ntext\nlabel\n28\n") << "no catalogue";
  compile("7 \"Beschreibung\"\n");
  EXPECT_EQ(text(kTemplate), "title\nBeschreibung\nlabel\n28\n");
  compile("8 \"other\"\n$set 2\n9 \"Beschriftung\"\n");
  EXPECT_EQ(text(kTemplate), "title\ntext\nBeschriftung\n28\n");
}

TEST_F(SyslogMessageCatalogue, TextOfACatalogueIsNoFormat) {
  compile("7 \"%n%s%1$s%\"\n$set 2\n9 \"%s%s%n\"\n");
  EXPECT_EQ(text(kTemplate), "title\n%n%s%1$s%\n%s%s%n\n28\n");
}

TEST_F(SyslogMessageCatalogue, NumbersBeyondThoseOfCataloguesHaveTheDefaults) {
  compile("7 \"Beschreibung\"\n");
  for (std::uint32_t number : {0U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    vk_syslog_tmpl_t tmpl = kTemplate;
    tmpl.msgnum = number;
    EXPECT_EQ(text(tmpl), "title\ntext\nlabel\n28\n") << number;
    tmpl = kTemplate;
    tmpl.set = number;
    EXPECT_EQ(text(tmpl), "title\ntext\nlabel\n28\n") << number;
  }
}

TEST_F(SyslogMessageCatalogue, LongTextOfACatalogueIsCut) {
  compile("7 \"" + std::string(2000, 'x') + "\"\n");
  EXPECT_EQ(text(kTemplate), "title\n" + std::string(939, 'x'));
}

}  // namespace
