// What the built libraries export, need and carry, read back from their files.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "dev/run_shell.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAreArray;

// The output of a command of binutils, in English.
std::string output_of(const std::string &command, const std::string &file) {
  const vk::test::shell_result result = vk::test::run_shell("/", "LC_ALL=C " + command + " '" + file + "'");
  EXPECT_EQ(result.status, 0) << command << result.output;
  return result.output;
}

std::vector<std::vector<std::string>> fields_of(const std::string &output) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::vector<std::string> row;
    for (std::string word; words >> word;) row.push_back(word);
    if (!row.empty()) rows.push_back(row);
  }
  return rows;
}

struct Symbol {
  std::string name, version, type;  // the version with its "@@" or "@"
};

std::vector<Symbol> symbols(const std::string &file, const std::string &option) {
  std::vector<Symbol> found;
  for (const std::vector<std::string> &row : fields_of(output_of("nm -D " + option, file))) {
    const std::string &full = row.back();
    const std::size_t at = full.find('@');
    found.push_back({full.substr(0, at), at == std::string::npos ? "" : full.substr(at), row[row.size() - 2]});
  }
  return found;
}

std::vector<std::string> dynamic_entries(const std::string &file, const std::string &tag) {
  return vk::test::all_groups(output_of("readelf -dW", file), "\\(" + tag + "\\).*\\[(.*)\\]");
}

const std::string kVosk = QX_VOSK_FILE, kCu = QX_CU_FILE;

const std::vector<std::string> kRoutines = {
    // environment
    "vk_init_1", "vk_init_main_1", "vk_test_stack_1", "vk_test_stack_main_1",
    // recording
    "vk_push_stack_1", "vk_push_stack_cmd_1", "vk_log_error_1", "vk_mk_syslog_msg_1",
    // identifiers
    "vk_generate_eid", "vk_generate_eid_2", "vk_decode_eid", "vk_decode_eid_2", "vk_display_fid_1",
    "vk_display_fid_main_1", "vk_obtain_ipaddrs", "vk_get_ipaddr", "vk_conv_ipaddr", "vk_test_ipaddr", "vk_l64a_r",
    "vk_a64l", "vk_selector_substr",
    // trace
    "vk_debug", "vk_is_debug_file_set", "vk_create_debug_file",
    // utilities
    "fclear", "vk_test_for_file", "vk_test_for_dir", "vk_determine_max_fsize", "vk_allocate_file",
    "vk_make_dump_file_copy", "vk_make_file_info_msg", "vk_determine_bsd_priority", "vk_truncate_description",
    "vk_get_msgcat_name"};
const std::vector<std::string> kData = {"vk_mesgtbl_vk_lib", "vk_badid_vk_lib"};

TEST(BuiltLibqxVosk, ExportsItsInterfaceUnderOneVersionAndNothingElse) {
  std::vector<std::string> routines, data;
  for (const Symbol &symbol : symbols(kVosk, "--defined-only")) {
    if (symbol.type == "A") {
      EXPECT_EQ(symbol.name, "QX_VOSK_1");
      continue;
    }
    EXPECT_EQ(symbol.version, "@@QX_VOSK_1") << symbol.name;
    (symbol.type == "T" ? routines : data).push_back(symbol.name);
    if (symbol.type != "T") {
      EXPECT_TRUE(symbol.type == "D" || symbol.type == "R") << symbol.name << " of type " << symbol.type;
    }
  }
  EXPECT_THAT(routines, UnorderedElementsAreArray(kRoutines));
  EXPECT_THAT(data, UnorderedElementsAreArray(kData));
}

TEST(BuiltLibqxVosk, IsFoundByEveryNameInItsVersion) {
  void *library = dlopen(kVosk.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  for (const std::vector<std::string> &names : {kRoutines, kData})
    for (const std::string &name : names) EXPECT_NE(dlvsym(library, name.c_str(), "QX_VOSK_1"), nullptr) << name;
  dlclose(library);
}

TEST(BuiltLibqxVosk, NeedsTheCLibraryAndLibqxCuOnly) {
  EXPECT_THAT(dynamic_entries(kVosk, "NEEDED"), ElementsAre("libqx_cu.so.1", "libc.so.6"));
  std::set<std::string> of_cu;
  for (const Symbol &symbol : symbols(kVosk, "--undefined-only")) {
    if (symbol.name.starts_with("cu_")) {
      of_cu.insert(symbol.name);
    } else {
      EXPECT_TRUE(symbol.version.starts_with("@GLIBC_")) << symbol.name << symbol.version;
    }
  }
  EXPECT_EQ(of_cu, (std::set<std::string>{"cu_get_proc_info_1", "cu_rel_error_args_1", "cu_set_error_1",
                                          "cu_set_error_args_1", "cu_set_no_error_1"}));
}

class BuiltLibrary : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Of, BuiltLibrary, testing::Values(kVosk, kCu), [](const auto &file) {
  return file.param == kVosk ? std::string("libqx_vosk") : std::string("libqx_cu");
});

TEST_P(BuiltLibrary, HasItsNameAndTheUsualLinks) {
  const std::string name = GetParam() == kVosk ? "libqx_vosk.so" : "libqx_cu.so";
  EXPECT_THAT(dynamic_entries(GetParam(), "SONAME"), ElementsAre(name + ".1"));
  const std::string directory = GetParam().substr(0, GetParam().rfind('/'));
  EXPECT_EQ(directory, QX_BINARY_DIR "/lib");
  char target[256];
  for (const auto &[link, expected] : {std::pair{name, name + ".1"}, std::pair{name + ".1", name + ".1.0.0"}}) {
    const ssize_t length = readlink((directory + "/" + link).c_str(), target, sizeof target);
    ASSERT_GT(length, 0) << link;
    EXPECT_EQ(std::string(target, static_cast<std::size_t>(length)), expected);
  }
  if (GetParam() == kVosk) {
    EXPECT_THAT(dynamic_entries(kVosk, "RUNPATH"), ElementsAre("$ORIGIN")) << "libqx_cu is found beside it";
  }
}

TEST_P(BuiltLibrary, TakesNothingFromTheCxxRuntime) {
  for (const Symbol &symbol : symbols(GetParam(), "--undefined-only")) {
    EXPECT_NE(symbol.name.substr(0, 2), "_Z") << symbol.name;
    for (const char *part : {"__cxa_", "__gxx_", "_Unwind_", "__dynamic_cast", "GLIBCXX", "CXXABI"})
      EXPECT_THAT(symbol.name + symbol.version, Not(HasSubstr(part)));
  }
  // Nor does it bring it along: no exception tables, type information, operators of its own in their place.
  EXPECT_EQ(output_of("readelf -SW", GetParam()).find(".gcc_except_table"), std::string::npos);
  const std::string all = output_of("nm", GetParam());
  for (const char *start : {" _ZTI", " _ZTS", " _Zn", " _Zd", " __cxa_", " __gxx_"})
    EXPECT_EQ(all.find(start), std::string::npos) << all.substr(std::min(all.size(), all.find(start)), 60);
}

TEST_P(BuiltLibrary, CallsThePlainRoutinesAndNotCheckedOnes) {
  for (const Symbol &symbol : symbols(GetParam(), "--undefined-only"))
    EXPECT_FALSE(symbol.name.starts_with("__") && symbol.name.ends_with("_chk")) << symbol.name;
}

TEST_P(BuiltLibrary, IsHardened) {
  const std::string dynamic = output_of("readelf -dW", GetParam());
  EXPECT_THAT(dynamic, HasSubstr("BIND_NOW"));
  EXPECT_THAT(dynamic, Not(HasSubstr("TEXTREL")));
  EXPECT_THAT(dynamic, Not(HasSubstr("(RPATH)")));

  bool relro = false, stack = false;
  for (const std::vector<std::string> &row : fields_of(output_of("readelf -lW", GetParam()))) {
    if (row[0] == "GNU_RELRO") relro = true;
    if (row[0] == "GNU_STACK") {
      stack = true;
      EXPECT_EQ(row[6], "RW");
    }
    if (row[0] == "LOAD" && row.size() > 8) {  // flags such as "R E" are two words
      EXPECT_FALSE(row[6].find('W') != std::string::npos && row[7] == "E");
    }
  }
  EXPECT_TRUE(relro);
  EXPECT_TRUE(stack);

  std::vector<std::string> undefined;
  for (const Symbol &symbol : symbols(GetParam(), "--undefined-only")) undefined.push_back(symbol.name);
  EXPECT_THAT(undefined, Contains("__stack_chk_fail"));
#if defined(__x86_64__)
  EXPECT_THAT(output_of("readelf -nW", GetParam()), HasSubstr("x86 feature: IBT, SHSTK"));
#endif
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
// A buffer of a path or two moves the stack by pages: each page is touched, so that no guard page is stepped over.
TEST(BuiltLibqxVosk, TouchesEveryPageOfItsLargeBuffers) {
  EXPECT_NE(output_of("objdump -d --no-show-raw-insn", kVosk).find("orq    $0x0,(%rsp)"), std::string::npos);
}
#endif

// Nothing is kept between calls: what is written at load time is read-only afterwards.
TEST(BuiltLibqxVosk, HasNoWritableData) {
  for (const std::vector<std::string> &row : fields_of(output_of("readelf -SW", kVosk)))
    for (const std::string &word : row)
      for (const char *section : {".data", ".bss", ".tdata", ".tbss"}) EXPECT_NE(word, section);
}

TEST(BuiltLibqxVosk, IsNotReplacedByRoutinesOfTheProgramThatHaveItsNames) {
  // Of its own exports none is called through the table of what others may replace.
  for (const std::string &line :
       vk::test::all_groups(output_of("readelf -rW", kVosk), "JUMP_SLO[^ ]* +[0-9a-f]+ ([^ ]+)"))
    EXPECT_THAT(kRoutines, Not(Contains(line.substr(0, line.find('@')))));
}

}  // namespace
