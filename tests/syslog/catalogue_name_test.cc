// The name under which the library's catalogue is opened.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <clocale>
#include <cstring>
#include <memory>

#include "support/files.h"
#include "support/interpose.h"

namespace {

TEST(CatalogueName, NameIsCopiedUnchangedAndTheBufferReturned) {
  for (const char *name : {"vosk.cat", "", "/a/path/to/%s", "another name.cat"}) {
    const std::size_t size = std::strlen(name) + 1;
    const std::unique_ptr<char[]> buffer(new char[size]);  // a sanitizer sees a byte behind it
    EXPECT_EQ(vk_get_msgcat_name(buffer.get(), name), buffer.get());
    EXPECT_STREQ(buffer.get(), name);
  }
  char buffer[4097] = "?";
  EXPECT_EQ(vk_get_msgcat_name(buffer, nullptr), buffer);
  EXPECT_STREQ(buffer, "");
  const std::string longest(4096, 'n');
  vk_get_msgcat_name(buffer, longest.c_str());
  EXPECT_EQ(buffer, longest);
}

TEST(CatalogueName, LocaleIsThatOfTheEnvironmentAfterwards) {
  platform::Environment environment;
  for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) environment.unset(name);
  environment.set("LC_ALL", "C.UTF-8");
  setlocale(LC_ALL, "C");
  platform::Calls calls;
  char buffer[16];
  calls.during([&] { vk_get_msgcat_name(buffer, "vosk.cat"); });
  EXPECT_THAT(calls.log_of({"setlocale"}), testing::ElementsAre("setlocale(6, \"\") = \"C.UTF-8\""));
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
  EXPECT_STREQ(buffer, "vosk.cat");
  setlocale(LC_ALL, "C");
}

TEST(CatalogueName, UnknownLocaleChangesNothing) {
  platform::Environment environment;
  environment.set("LC_ALL", "no_SUCH");
  setlocale(LC_ALL, "C");
  char buffer[16];
  EXPECT_EQ(vk_get_msgcat_name(buffer, "vosk.cat"), buffer);
  EXPECT_STREQ(buffer, "vosk.cat");
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
}

}  // namespace
