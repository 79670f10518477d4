// What makes texts safe to show, and what puts a record's description together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "reader/builder.h"
#include "support/files.h"
#include "tools/reader/description.h"
#include "tools/reader/escape.h"
#include "tools/reader/stack.h"

using vosk::escaped;

namespace {

std::uint64_t bits_of(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

vosk::argument number(std::uint32_t type, std::uint64_t bits) {
  vosk::argument a;
  a.type = type;
  a.bits = bits;
  return a;
}

vosk::argument text(std::string_view value) {
  vosk::argument a;
  a.type = 5;
  a.text = value;
  return a;
}

}  // namespace

TEST(Escape, MakesControlCharactersVisible) {
  struct {
    std::string_view text, shown;
  } const rows[] = {
      {"plain text, 100%", "plain text, 100%"},
      {{"a\0b", 3}, "a\\x00b"},
      {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
      {"\x1b[31mred\x7f", "\\x1b[31mred\\x7f"},
      {"gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F"},
      {"\xC2\x9B"
       "31m",
       "\\u{9b}31m"},  // CSI as one character
      {"\xE2\x80\xAE"
       "abc",
       "\\u{202e}abc"},  // turns the direction
      {"\xEF\xBB\xBF", "\\u{feff}"},
      {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
      {"\xF3\xA0\x80\x81", "\\u{e0001}"},
      {"\x80\xFF", "\\x80\\xff"},
      {"\xC0\xAF", "\\xc0\\xaf"},                    // overlong
      {"\xED\xA0\x80", "\\xed\\xa0\\x80"},           // a surrogate
      {"\xF4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last character
      {"\xE2\x82", "\\xe2\\x82"},                    // cut
  };
  for (const auto &row : rows) EXPECT_EQ(escaped(row.text), row.shown);
}

TEST(Escape, KeepsLinesWhereTheyAreWanted) {
  EXPECT_EQ(escaped("a\nb\tc\rd", vosk::keep::lines), "a\nb\tc\\rd");
}

TEST(Escape, ShowsBytesWhereTheOutputHasNoUtf8) {
  EXPECT_EQ(escaped("gr\xC3\xBC", vosk::keep::nothing, false), "gr\\xc3\\xbc");
}

TEST(Description, PutsEveryTypeOfArgumentIn) {
  struct {
    const char *format;
    std::vector<vosk::argument> arguments;
    const char *filled;
  } const rows[] = {
      {"nothing", {}, "nothing"},
      {"%d%%", {number(1, static_cast<std::uint64_t>(-5))}, "-5%"},
      {"%5.3d|%-4d|%+d", {number(1, 7), number(1, 8), number(1, 9)}, "  007|8   |+9"},
      {"%u %x %#o", {number(2, 4294967295u), number(2, 255), number(2, 8)}, "4294967295 ff 010"},
      {"%ld %lld %jd %td", {number(3, 1), number(3, 2), number(3, 3), number(3, 4)}, "1 2 3 4"},
      {"%lu %zu", {number(4, 18446744073709551615u), number(4, 5)}, "18446744073709551615 5"},
      {"%s and %.2s", {text("text"), text("cut")}, "text and cu"},
      {"%2$s %1$s", {text("a"), text("b")}, "b a"},
      {"%f %.1e", {number(6, bits_of(1.5)), number(6, bits_of(1e10))}, "1.500000 1.0e+10"},
      {"%c", {number(8, 'c')}, "c"},
      {"%Lf", {number(6, bits_of(1.5))}, "1.500000"},
      {"%p", {number(7, 0x1234)}, "0x1234"},
      {"%*d|%.*s", {number(1, 4), number(1, 7), number(1, 2), text("abc")}, "   7|ab"},
      {"%hhd %hd", {number(1, 300), number(1, 70000)}, "44 4464"},
  };
  for (const auto &row : rows) EXPECT_EQ(vosk::fill_in(row.format, row.arguments), row.filled) << row.format;
}

TEST(Description, ShowsTheTextAsItStandsWhereTheArgumentsAreOthers) {
  struct {
    const char *format;
    std::vector<vosk::argument> arguments;
  } const rows[] = {
      {"%s", {}},
      {"%s", {number(1, 5)}},
      {"%d", {text("a")}},
      {"%d %d", {number(1, 5)}},
      {"none", {number(1, 5)}},
      {"%n", {number(7, 0)}},
      {"%u", {number(1, 5)}},
      {"%ld", {number(1, 5)}},
      {"%lu", {number(1, 5)}},
      {"%f", {number(1, 5)}},
      {"%c", {number(1, 5)}},
      {"%p", {number(1, 5)}},
      {"%2$d", {number(1, 5), number(1, 5)}},
      {"%s %2$s", {text("a"), text("b")}},
      {"%2$s", {text("a"), text("b")}},
      {"100% of %s", {text("a")}},
      {"%ls", {text("a")}},
  };
  for (const auto &row : rows) EXPECT_EQ(vosk::fill_in(row.format, row.arguments), row.format);
  vosk::argument cut;
  cut.type = 1;
  EXPECT_EQ(vosk::fill_in("%d", {cut}), "%d");
}

TEST(Description, LeavesTheErrorConversionInItsPlace) {
  EXPECT_EQ(vosk::fill_in("cannot open %s: %m (%d)", {text("/x"), number(1, 3)}), "cannot open /x: %m (3)");
}

TEST(Description, StaysBoundedWhateverWidthIsAskedFor) {
  EXPECT_LE(vosk::fill_in("%65535d%65535d%65535d", {number(1, 1), number(1, 2), number(1, 3)}).size(), 65536u);
}

// The reader's catalogue decides only over the wording.
TEST(Description, TakesTheCataloguesTextOnlyIfItsConversionsAreThoseOfTheDefaultText) {
  files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "source", "$set 1\n1 kann %1$s nicht oeffnen\n2 %1$s %2$s\n3 %1$n\n4 %1$d\n"));
  ASSERT_EQ(std::system(("gencat " + (dir / "my.cat") + " " + (dir / "source")).c_str()), 0);
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  struct {
    const char *catalogue;
    std::uint32_t number;
    const char *description;
  } const rows[] = {
      {"my.cat", 1, "kann /etc/thing nicht oeffnen"},
      {"my.cat", 2, "cannot open /etc/thing"},
      {"my.cat", 3, "cannot open /etc/thing"},
      {"my.cat", 4, "cannot open /etc/thing"},
      {"my.cat", 5, "cannot open /etc/thing"},
      {"other.cat", 1, "cannot open /etc/thing"},
      {"", 1, "cannot open /etc/thing"},
      {"../my.cat", 1, "cannot open /etc/thing"},
  };
  builder::model m;
  for (const auto &row : rows) {
    builder::record r;
    r.catalogue = row.catalogue;
    r.number = row.number;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
  }
  const vosk::stack stack = vosk::read_stack(m.file(), builder::kInode);
  ASSERT_EQ(stack.records.size(), std::size(rows));

  const std::string plain_text = "cannot open /etc/thing";
  const auto is_mapped = [&] {
    return files::read("/proc/self/maps").value_or("").find(dir / "my.cat") != std::string::npos;
  };
  // As an ordinary user; the superuser's NLSPATH is ignored.
  const auto descriptions_as = [&](uid_t user) {
    EXPECT_TRUE(files::write(dir / "out", ""));
    EXPECT_EQ(chmod((dir / "out").c_str(), 0666), 0);
    const pid_t child = fork();
    if (child == 0) {
      if (user != geteuid() && setresuid(user, user, 0) != 0) _exit(1);
      (void)prctl(PR_SET_DUMPABLE, 1);  // so that its own maps can be read
      setenv("NLSPATH", (dir / "%N").c_str(), 1);
      std::string all;
      {
        vosk::describer descriptions;
        for (const vosk::record &r : stack.records) all += descriptions.description(r) + "\n";
        if (is_mapped() != (geteuid() != 0)) _exit(5);
        // A record that was cut before the number of its message.
        for (const auto part : {&vosk::record::set, &vosk::record::number}) {
          vosk::record cut = stack.records[0];
          cut.*part = std::nullopt;
          if (descriptions.description(cut) != plain_text) _exit(2);
        }
      }
      if (is_mapped()) _exit(3);  // it is closed again
      {
        // Of the catalogues that records name only so many are looked for.
        vosk::describer descriptions;
        for (int i = 0; i < 256; ++i) {
          vosk::record other = stack.records[0];
          const std::string name = "other" + std::to_string(i);
          other.catalogue = name;
          (void)descriptions.description(other);
        }
        if (descriptions.description(stack.records[0]) != plain_text) _exit(4);
      }
      _exit(files::write(dir / "out", all) ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return *files::read(dir / "out");
  };
  std::string expected, plain;
  for (const auto &row : rows) {
    expected += std::string(row.description) + "\n";
    plain += plain_text + "\n";
  }
  EXPECT_EQ(descriptions_as(geteuid() == 0 ? 65534 : geteuid()), expected);
  if (geteuid() == 0) {
    EXPECT_EQ(descriptions_as(0), plain);
  }
}
