// The header character of an identifier: version and location.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

constexpr std::string_view kAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr const char *kEncoder = "vk_get_base_64_hdr";
constexpr const char *kDecoder = "vk_conv_base_64_hdr";

struct Valid {
  int version;
  unsigned location;
  unsigned code;
  char character;
};
constexpr Valid kValid[] = {{1, 0, 0, '.'}, {1, 1, 1, '/'}, {1, 2, 2, '0'},
                            {2, 0, 8, '6'}, {2, 1, 9, '7'}, {2, 2, 10, '8'}};

TEST(HeaderEncoder, GivesEachVersionAndLocationItsCharacter) {
  for (const Valid &row : kValid) {
    SCOPED_TRACE(row.character);
    const std::string text = std::string("Combined version code 0x0 and location 0x") + "012"[row.location] +
                             " into header code 0x" + "0123456789a"[row.code] + "\nBase-64 equiv: " + row.character +
                             "\nReturning VOSK_SUCCESS(0) to the caller\n";
    char header[2];
    expect_result_and_trace(
        [&](int on, const char *path) {
          header[0] = header[1] = '\0';
          return vk::vk_get_base_64_hdr(on, path, row.version, row.location, header);
        },
        0, {trace_entry(kEncoder, text)});
    EXPECT_EQ(header[0], row.character);
    EXPECT_EQ(header[1], '\0');
  }
}

TEST(HeaderEncoder, WritesALoneDotButAZeroByteBehindTheOthers) {
  for (const Valid &row : kValid) {
    EdgeBuffer header(row.code == 0 ? 1 : 2);
    EXPECT_EQ(vk::vk_get_base_64_hdr(0, nullptr, row.version, row.location, header.chars()), 0);
    EXPECT_EQ(header.bytes(), row.code == 0 ? "." : std::string(1, row.character) + '\0');
  }
}

TEST(HeaderEncoder, RefusesInTheOrderVersionLocationPointer) {
  EdgeBuffer header(2);
  const struct {
    int version;
    unsigned location;
    char *out;
    int code;
    const char *text;
  } rows[] = {
      {3, 0, header.chars(), -4,
       "Called with an invalid VOSK source code version of 3\nHighest supported version 2\n"
       "Returning VOSK_INV_PARAM3(-4) to the caller"},
      {0, 3, nullptr, -4,
       "Called with an invalid VOSK source code version of 0\nHighest supported version 2\n"
       "Returning VOSK_INV_PARAM3(-4) to the caller"},
      {-1, 0, header.chars(), -4,
       "Called with an invalid VOSK source code version of -1\nHighest supported version 2\n"
       "Returning VOSK_INV_PARAM3(-4) to the caller"},
      {INT_MIN, 0, header.chars(), -4,
       "Called with an invalid VOSK source code version of -2147483648\nHighest supported version 2\n"
       "Returning VOSK_INV_PARAM3(-4) to the caller"},
      {1, 3, nullptr, -5,
       "Called with an invalid location mask of 0x3\nHighest supported 0x2\n"
       "Returning VOSK_INV_PARAM4(-5) to the caller\n"},
      {2, 8, header.chars(), -5,
       "Called with an invalid location mask of 0x8\nHighest supported 0x2\n"
       "Returning VOSK_INV_PARAM4(-5) to the caller\n"},
      {2, UINT_MAX, header.chars(), -5,
       "Called with an invalid location mask of 0xffffffff\nHighest supported 0x2\n"
       "Returning VOSK_INV_PARAM4(-5) to the caller\n"},
      {1, 2, nullptr, -6, "Called with a NULL pointer for hdr64rep\nReturning VOSK_INV_PARAM5(-6) to caller\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.version) + " " + std::to_string(row.location));
    expect_result_and_trace(
        [&](int on, const char *path) { return vk::vk_get_base_64_hdr(on, path, row.version, row.location, row.out); },
        row.code, {trace_entry(kEncoder, row.text)});
    EXPECT_TRUE(header.untouched());
  }
}

constexpr unsigned kUnset = 0xA5A5A5A5;

struct Decoded {
  unsigned version = kUnset, location = kUnset;
};

TEST(HeaderDecoder, TakesEachValidCharacterApart) {
  for (const Valid &row : kValid) {
    SCOPED_TRACE(row.character);
    const std::string text = std::string("Header code ") + row.character + " translated into version " +
                             "012"[row.version] + " and location 0x" + "012"[row.location] +
                             "\nReturning VOSK_SUCCESS(0) to the caller\n";
    EdgeText header(std::string(1, row.character));
    Decoded out;
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_conv_base_64_hdr(on, path, header.chars(), &out.version, &out.location);
        },
        0, {trace_entry(kDecoder, text)});
    EXPECT_EQ(out.version, static_cast<unsigned>(row.version));
    EXPECT_EQ(out.location, row.location);
  }
}

// Of the 64 characters the six valid ones decode; a bad location is found after the version was stored.
TEST(HeaderDecoder, RefusesEveryOtherCharacter) {
  for (unsigned code = 0; code < 64; ++code) {
    SCOPED_TRACE(kAlphabet[code]);
    const unsigned location = code % 8;
    const bool known_version = code < 16;
    if (known_version && location <= 2) continue;
    Decoded out;
    EdgeText header(kAlphabet.substr(code, 1));
    EXPECT_EQ(vk::vk_conv_base_64_hdr(0, nullptr, header.chars(), &out.version, &out.location), -99);
    EXPECT_EQ(out.version, known_version ? (code < 8 ? 1u : 2u) : kUnset);
    EXPECT_EQ(out.location, kUnset);
  }
}

TEST(HeaderDecoder, SaysWhatIsWrongWithAHeader) {
  const struct {
    const char *header;
    unsigned version, location;
    int code;
    const char *text;
  } rows[] = {
      {"1", 1, kUnset, -99,
       "Unsupported record location 0x3 detected\nMaximum supported 0x2\nReturning VOSK_UNSUPPORTED(-99)"},
      {"9", 2, kUnset, -99,
       "Unsupported record location 0x3 detected\nMaximum supported 0x2\nReturning VOSK_UNSUPPORTED(-99)"},
      {"5", 1, kUnset, -99,
       "Unsupported record location 0x7 detected\nMaximum supported 0x2\nReturning VOSK_UNSUPPORTED(-99)"},
      {"E", kUnset, kUnset, -99,
       "Unsupported VOSK Version 0x10 detected\nMaximum supported 0x8\nReturning VOSK_UNSUPPORTED(-99)"},
      {"M", kUnset, kUnset, -99,  // a good location does not help
       "Unsupported VOSK Version 0x18 detected\nMaximum supported 0x8\nReturning VOSK_UNSUPPORTED(-99)"},
      {"z", kUnset, kUnset, -99,
       "Unsupported VOSK Version 0x38 detected\nMaximum supported 0x8\nReturning VOSK_UNSUPPORTED(-99)"},
      {"./", kUnset, kUnset, -99,
       "Header code ./ converted to value 0x40, outside of supported range\n"
       "Returning VOSK_UNSUPPORTED(-99) to the caller\n"},
      {"*", kUnset, kUnset, -99,  // no digit
       "Header code * converted to value 0x40, outside of supported range\n"
       "Returning VOSK_UNSUPPORTED(-99) to the caller\n"},
      {"7/", kUnset, kUnset, -99,
       "Header code 7/ converted to value 0x49, outside of supported range\n"
       "Returning VOSK_UNSUPPORTED(-99) to the caller\n"},
      {"7....z", kUnset, kUnset, -99,  // printed by its low 32 bits
       "Header code 7....z converted to value 0xc0000009, outside of supported range\n"
       "Returning VOSK_UNSUPPORTED(-99) to the caller\n"},
      // Digits of the value 0 change nothing, and the comparison is a signed one.
      {"7.....", 2, 1, 0,
       "Header code 7..... translated into version 2 and location 0x1\nReturning VOSK_SUCCESS(0) to the caller\n"},
      {"8.........6", 2, 2, 0,
       "Header code 8.........6 translated into version 2 and location 0x2\n"
       "Returning VOSK_SUCCESS(0) to the caller\n"},
      {"zzzzzzzzzzz", kUnset, kUnset, -99,
       "Unsupported VOSK Version 0x38 detected\nMaximum supported 0x8\nReturning VOSK_UNSUPPORTED(-99)"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.header);
    EdgeText header(row.header);
    Decoded out;
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_conv_base_64_hdr(on, path, header.chars(), &out.version, &out.location);
        },
        row.code, {trace_entry(kDecoder, row.text)});
    EXPECT_EQ(out.version, row.version);
    EXPECT_EQ(out.location, row.location);
  }
}

TEST(HeaderDecoder, RefusesInTheOrderHeaderVersionLocation) {
  unsigned version = kUnset, location = kUnset;
  const struct {
    const char *header;
    unsigned *version, *location;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, nullptr, -4,
       "Called with a NULL value for hdr64rep\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {"", nullptr, nullptr, -4, "Called with a NULL value for hdr64rep\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {"z", nullptr, nullptr, -5, "Called with a NULL value for version_id\nReturning VOSK_INV_PARAM4(-5) to caller\n"},
      {"7", &version, nullptr, -6,
       "Called with a NULL value for location_mask\nReturning VOSK_INV_PARAM5(-6) to caller\n"},
  };
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_conv_base_64_hdr(on, path, row.header, row.version, row.location);
        },
        row.code, {trace_entry(kDecoder, row.text)});
  }
  EXPECT_EQ(version, kUnset);
  EXPECT_EQ(location, kUnset);
}

}  // namespace
