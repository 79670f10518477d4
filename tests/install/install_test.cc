// Installs the built tree below a folder of its own, as a prefix and staged for /usr, and uses it as others would.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "dev/run_shell.h"
#include "support/files.h"
#include "support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vk::test::all_groups;
using vk::test::first_group;
using vk::test::run_shell;
using vk::test::shell_result;

// What the consumers do: record, and show the identifier.
constexpr char kPlain[] = R"(
#include <qx_vosk.h>
#include <stdio.h>
#include <string.h>
int main(void) {
  vk_eid_t eid = "";
  vk_init_1(VK_STACK_CREAT);
  vk_push_stack_1(&eid, NULL, "r", "p", __FILE__, "1", __LINE__, 0, "why", NULL, "c.cat", 1, 1, "it failed: %d", 7);
  puts(eid);
  return strlen(eid) == VK_EID_SIZE - 1 ? 0 : 1;
}
)";
constexpr char kMacros[] = R"(
#define VK_PRODUCT "p"
#define VK_SOURCE_VERSION "1"
#define VK_RESOURCE "r"
#define VK_CHECK_FORMAT
#include <qx_vosk_macros.h>
#include <stdio.h>
#include <string.h>
int main(void) {
  vk_eid_t eid = "";
  vk_init_1(VK_STACK_CREAT);
  VK_PUSH(&eid, NULL, "why", "it failed: %d", 7);
  puts(eid);
  return strlen(eid) == VK_EID_SIZE - 1 ? 0 : 1;
}
)";
constexpr char kCxx[] = R"(
#include <qx_vosk.hpp>
#include <iostream>
int main() {
  qx::vosk::establish();
  const auto made = qx::vosk::push({.message = "it failed", .details = "why", .product = "p"});
  std::cout << made.id << '\n';
  return made.recorded() && made.id.decode() ? 0 : 1;
}
)";
constexpr char kLoading[] = R"(
#include <dlfcn.h>
#include <stdio.h>
int main(int argc, char **argv) {
  void *library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  unsigned long (*decode)(const char *) = NULL;
  if (library == NULL) return puts(dlerror()), 1;
  *(void **)&decode = dlsym(library, "vk_a64l");
  return decode != NULL && decode("1") == 3 && dlclose(library) == 0 ? 0 : 2;
}
)";
// A program that sets no locale, and prints what the library reports of an option that is not known. With an argument
// it sets the locale and asks for the catalogue itself.
constexpr char kMessage[] = R"(
#include <locale.h>
#include <nl_types.h>
#include <qx_cu.h>
#include <qx_vosk.h>
#include <stdio.h>
int main(int argc, char **argv) {
  cu_error_t error;
  (void)argv;
  if (argc > 1) {
    setlocale(LC_ALL, "");
    return catopen("vosk.cat", NL_CAT_LOCALE) != (nl_catd)-1 ? 0 : 1;
  }
  vk_init_1(77);
  cu_get_error_1(&error);
  puts(error.text);
  return 0;
}
)";
constexpr char kEnglish[] = "The parameter passed to the library", kGerman[] = "Bibliotheksroutine";

class Install : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new files::TemporaryDirectory;
    prefix_ = *folder_ / "prefix";
    printed_ = install("--prefix " + prefix_, "");
    install("--prefix /usr", stage());
    for (const auto &[name, text] : std::map<std::string, std::string>{{"plain.c", kPlain},
                                                                       {"macros.c", kMacros},
                                                                       {"plain.cc", kPlain},
                                                                       {"macros.cc", kMacros},
                                                                       {"cxx.cc", kCxx},
                                                                       {"loading.c", kLoading},
                                                                       {"message.c", kMessage}})
      ASSERT_TRUE(files::write(*folder_ / name, text));
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  static std::string stage() { return *folder_ / "stage"; }
  static std::string libdir() { return prefix_ + "/" QX_LIBDIR; }
  static std::string install(const std::string &options, const std::string &destdir) {
    const auto result = run_shell("/", "env " + (destdir.empty() ? "-u DESTDIR" : "DESTDIR=" + destdir) +
                                           " LC_ALL=C " QX_CMAKE " --install " QX_BINARY_DIR " " + options);
    EXPECT_EQ(result.status, 0) << result.output;
    return result.output;
  }
  static shell_result run(const std::string &command) {
    return run_shell(folder_->path(), "unset LANG LC_ALL LC_MESSAGES LANGUAGE NLSPATH LD_LIBRARY_PATH; " + command);
  }
  static void succeeds(const std::string &command) {
    const auto result = run(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
  }
  static std::vector<std::string> dynamic(const std::string &file, const std::string &tag) {
    const auto result = run("LC_ALL=C readelf -dW " + file);
    EXPECT_EQ(result.status, 0) << result.output;
    return all_groups(result.output, "\\(" + tag + "\\).*\\[(.*)\\]");
  }
  static std::string plain_flags() { return "-I" + prefix_ + "/include -L" + libdir() + " -lqx_vosk"; }
  static std::string found_there() { return " -Wl,-rpath," + libdir() + " "; }

  static files::TemporaryDirectory *folder_;
  static std::string prefix_, printed_;
};
files::TemporaryDirectory *Install::folder_ = nullptr;
std::string Install::prefix_, Install::printed_;

TEST_F(Install, PutsEverythingWhereItsUsersLook) {
  for (const char *name : {"include/qx_vosk.h",
                           "include/qx_vosk_macros.h",
                           "include/qx_vosk.hpp",
                           "include/qx_cu.h",
                           QX_LIBDIR "/libqx_vosk.so",
                           QX_LIBDIR "/libqx_vosk.so.1",
                           QX_LIBDIR "/libqx_cu.so.1",
                           QX_LIBDIR "/pkgconfig/qx_vosk.pc",
                           QX_LIBDIR "/pkgconfig/qx_cu.pc",
                           QX_LIBDIR "/cmake/qx_vosk/qx_voskConfig.cmake",
                           "bin/vosk",
                           "bin/vkstkrpt",
                           "lib/tmpfiles.d/qx_vosk.conf",
                           "share/locale/C/LC_MESSAGES/vosk.cat",
                           "share/locale/en/LC_MESSAGES/vosk.cat",
                           "share/man/man3/vk_init_1.3",
                           "share/man/man3/cu_set_error_1.3",
                           "share/man/man1/vosk.1",
                           "share/man/man5/vosk-stack.5",
                           "share/man/man7/libqx_vosk.7",
                           "share/bash-completion/completions/vosk",
                           "share/bash-completion/completions/vkstkrpt",
                           "share/doc/qx_vosk/examples/record_to_stack.c"})
    EXPECT_TRUE(fs::exists(prefix_ + "/" + name)) << name;
  for (const std::string &language : files::list(QX_SOURCE_DIR "/messages"))
    if (fs::is_directory(QX_SOURCE_DIR "/messages/" + language)) {
      EXPECT_TRUE(fs::exists(prefix_ + "/share/locale/" + language + "/LC_MESSAGES/vosk.cat")) << language;
    }
  // The documents, with what they lead to.
  const std::string documents = prefix_ + "/share/doc/qx_vosk/";
  for (const std::string &name : files::list(QX_SOURCE_DIR "/docs")) {
    if (name == "proof.md") continue;
    const auto text = files::read(documents + name);
    EXPECT_TRUE(text) << name;
    for (const std::string &link : all_groups(text.value_or(""), "]\\(([^):#]+)"))
      EXPECT_TRUE(fs::exists(documents + link)) << name << ": " << link;
  }
  for (const std::string &page : files::list(QX_SOURCE_DIR "/man"))
    EXPECT_TRUE(fs::exists(prefix_ + "/share/man/man" + page.back() + "/" + page)) << page;
}

TEST_F(Install, ServesEveryLanguageAndEveryWayToFindIt) {
  const std::string pkg_config = "$(PKG_CONFIG_PATH=" + libdir() + "/pkgconfig pkg-config --cflags --libs qx_vosk)";
  const std::string both = "$(PKG_CONFIG_PATH=" + libdir() + "/pkgconfig pkg-config --cflags --libs qx_vosk qx_cu)";
  const struct {
    std::string compiler, source, flags;
  } rows[] = {
      {"cc -std=c11 -pedantic", "plain.c", plain_flags()},
      {"cc -std=c11", "macros.c", pkg_config},
      {"cc -std=c17 -pedantic", "plain.c", pkg_config},
      {"cc -std=c17", "macros.c", plain_flags()},
      {"c++ -std=c++17 -pedantic", "plain.cc", pkg_config},
      {"c++ -std=c++17", "macros.cc", plain_flags()},
      {"c++ -std=c++20 -pedantic", "plain.cc", plain_flags()},
      {"c++ -std=c++20", "macros.cc", pkg_config},
      {"c++ -std=c++20", "cxx.cc", both},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.compiler + " " + row.source + " " + row.flags);
    succeeds(row.compiler + " -Wall -Wextra -Werror " + row.source + " -o consumer " + row.flags + found_there());
    const auto made = run("./consumer");
    EXPECT_EQ(made.status, 0) << made.output;
    EXPECT_THAT(made.output, testing::MatchesRegex("[./0-9A-Za-z]{42}\n"));
    succeeds(prefix_ + "/bin/vkstkrpt | grep -q 'it failed'");
    sandbox::fresh({});
  }
}

TEST_F(Install, ServesFindPackage) {
  fs::create_directory(*folder_ / "package");
  ASSERT_TRUE(files::write(*folder_ / "package/CMakeLists.txt",
                           "cmake_minimum_required(VERSION 3.25)\nproject(consumer C CXX)\n"
                           "set(CMAKE_CXX_STANDARD 20)\nfind_package(qx_vosk 1 REQUIRED)\n"
                           "add_executable(c ../plain.c)\ntarget_link_libraries(c qx_vosk::qx_vosk)\n"
                           "add_executable(cxx ../cxx.cc)\n"
                           "target_link_libraries(cxx qx_vosk::qx_vosk qx_vosk::qx_cu)\n"));
  succeeds(QX_CMAKE " -S package -B package/build -DCMAKE_PREFIX_PATH=" + prefix_ +
           " && " QX_CMAKE " --build package/build");
  succeeds("package/build/c && package/build/cxx");
  const auto refused = run("sed -i 's/qx_vosk 1 /qx_vosk 2 /' package/CMakeLists.txt && " QX_CMAKE
                           " -S package -B package/later -DCMAKE_PREFIX_PATH=" +
                           prefix_);
  EXPECT_NE(refused.status, 0) << "another major version";
  EXPECT_THAT(refused.output, HasSubstr("qx_vosk"));
}

TEST_F(Install, CanBeLoadedAtRunTime) {
  succeeds("cc -std=gnu11 loading.c -o loading -ldl && ./loading " + libdir() + "/libqx_vosk.so.1");
}

// One with the five routines that libqx_vosk calls, and no more.
TEST_F(Install, TakesAnotherLibqxCuInThePlaceOfOurs) {
  fs::create_directory(*folder_ / "other");
  succeeds("cc -shared -fPIC -Wl,-soname,libqx_cu.so.1 " QX_SOURCE_DIR
           "/cmake/dev/another_qx_cu.c -o other/libqx_cu.so.1");
  succeeds("cc plain.c -o with_c " + plain_flags() + found_there());
  succeeds("c++ -std=c++20 cxx.cc -o with_cxx " + plain_flags() + " -lqx_cu" + found_there());
  const std::string vosk = prefix_ + "/bin/vosk";
  for (const std::string &program : {std::string("./with_c"), std::string("./with_cxx"),
                                     "eval \"$(" + vosk + " env create $$)\"; " + vosk + " push why"}) {
    const auto made = run("export LD_LIBRARY_PATH=other; " + program);
    EXPECT_EQ(made.status, 0) << program << "\n" << made.output;
    EXPECT_THAT(made.output, testing::ContainsRegex("[./0-9A-Za-z]{42}\n")) << program;
    if (program == "./with_cxx") {  // gives no resource
      EXPECT_THAT(made.output, HasSubstr("another libqx_cu: 28, vosk.cat"));
    }
  }
}

TEST_F(Install, CanBeMoved) {
  fs::copy(prefix_, *folder_ / "moved", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  const std::string moved = *folder_ / "moved/" QX_LIBDIR;
  const auto flags = run("PKG_CONFIG_PATH=" + moved + "/pkgconfig pkg-config --cflags --libs qx_vosk");
  EXPECT_THAT(flags.output, Not(HasSubstr(prefix_)));
  succeeds("cc plain.c -o moved_consumer $(PKG_CONFIG_PATH=" + moved +
           "/pkgconfig pkg-config --cflags --libs qx_vosk) && LD_LIBRARY_PATH=" + moved + " ./moved_consumer");
}

TEST_F(Install, OfAPrefixWithBlanksServesAllTheSame) {
  const std::string prefix = *folder_ / "two words/here", quoted = "\"" + prefix + "\"";
  const std::string printed = install("--prefix " + quoted, "");
  const std::string pkg_config =
      "PKG_CONFIG_PATH=" + quoted + "/" QX_LIBDIR "/pkgconfig pkg-config --cflags --libs qx_vosk qx_cu";
  const std::string there = "LD_LIBRARY_PATH=" + quoted + "/" QX_LIBDIR " ";
  succeeds("eval cc message.c -o blank $(" + pkg_config + ")");
  const std::string path = first_group(printed, "set: (NLSPATH=.*)$");
  EXPECT_THAT(run(there + path + " LANG=de ./blank").output, HasSubstr(kGerman)) << printed;

  fs::create_directory(*folder_ / "blank_package");
  ASSERT_TRUE(files::write(*folder_ / "blank_package/CMakeLists.txt",
                           "cmake_minimum_required(VERSION 3.25)\nproject(consumer C)\n"
                           "find_package(qx_vosk 1.0 REQUIRED)\nadd_executable(c ../plain.c)\n"
                           "target_link_libraries(c qx_vosk::qx_vosk)\n"));
  succeeds(QX_CMAKE " -S blank_package -B blank_package/build -DCMAKE_PREFIX_PATH=" + quoted +
           " && " QX_CMAKE " --build blank_package/build && blank_package/build/c");
  succeeds(quoted + "/bin/vosk report | grep -q 'it failed'");
}

TEST_F(Install, LeavesConsumersWithTheLibraryAndTheCLibraryOnly) {
  succeeds("cc plain.c -o needing " + plain_flags());
  EXPECT_THAT(dynamic("needing", "NEEDED"), ElementsAre("libqx_vosk.so.1", "libc.so.6"));
  EXPECT_THAT(dynamic(libdir() + "/libqx_vosk.so.1", "NEEDED"), ElementsAre("libqx_cu.so.1", "libc.so.6"));
  // What is kept for each thread is found through the loader.
  EXPECT_THAT(dynamic(libdir() + "/libqx_cu.so.1", "NEEDED"),
              testing::Each(testing::AnyOf("libc.so.6", testing::StartsWith("ld-linux"))));
}

TEST_F(Install, FindsItsOwnLibraryBesideItExceptWhereTheSystemLooks) {
  const struct {
    const char *prefix;
    bool beside;
  } rows[] = {{"/usr", false}, {"/usr/local", false}, {"/usr/", false}, {"/opt/vosk", true}, {"/usr/localized", true}};
  int number = 0;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.prefix);
    const std::string staged = *folder_ / ("rpath" + std::to_string(number++));
    install(std::string("--prefix ") + row.prefix, staged);
    const std::string library = staged + row.prefix + "/" QX_LIBDIR "/libqx_vosk.so.1";
    if (row.beside)
      EXPECT_THAT(dynamic(library, "RUNPATH"), ElementsAre("$ORIGIN"));
    else
      EXPECT_THAT(dynamic(library, "RUNPATH"), IsEmpty());
    EXPECT_THAT(dynamic(library, "RPATH"), IsEmpty());
    const std::string tool = staged + row.prefix + "/bin/vosk";
    if (row.beside)
      EXPECT_THAT(dynamic(tool, "RUNPATH"), ElementsAre(testing::EndsWith("$ORIGIN/../" QX_LIBDIR)));
    else
      EXPECT_THAT(dynamic(tool, "RUNPATH"), IsEmpty());
    EXPECT_THAT(dynamic(staged + row.prefix + "/bin/vkstkrpt", "RUNPATH"), IsEmpty()) << "it needs no library of ours";
  }
}

TEST_F(Install, OfASystemPrefixHasItsCataloguesWhereCatopenLooks) {
  succeeds("cc message.c -o message " + plain_flags() + " -lqx_cu" + found_there());
  // A mount of this test's own namespace.
  ASSERT_EQ(run("mount --bind " + stage() + "/usr/share/locale /usr/share/locale").status, 0);
  EXPECT_EQ(run("LC_ALL=C ./message ask").status, 0) << "the catalogue of the locale C";
  EXPECT_EQ(run("LANG=de ./message ask").status, 0);
  EXPECT_THAT(run("LANG=C ./message").output, HasSubstr(kEnglish));
  // The program has set no locale, and there is a catalogue for C: the user's language wins all the same.
  EXPECT_THAT(run("LANG=de ./message").output, HasSubstr(kGerman));
  EXPECT_THAT(run("LANG=de_DE.UTF-8 ./message").output, HasSubstr(kGerman));
  EXPECT_EQ(run("umount /usr/share/locale").status, 0);
  if (!fs::exists("/usr/share/locale/de/LC_MESSAGES/vosk.cat")) {
    EXPECT_THAT(run("LANG=de ./message").output, HasSubstr(kEnglish)) << "it came from elsewhere";
  }
}

TEST_F(Install, OfAnotherPrefixPrintsTheVariableThatMakesItsCataloguesFound) {
  const std::string path = first_group(printed_, "set: (NLSPATH=[^ ]*)$");
  ASSERT_THAT(path, HasSubstr(prefix_)) << printed_;
  succeeds("cc message.c -o message " + plain_flags() + " -lqx_cu" + found_there());
  EXPECT_EQ(run(path + " LC_ALL=C ./message ask").status, 0);
  EXPECT_THAT(run(path + " LANG=de ./message").output, HasSubstr(kGerman));
  EXPECT_THAT(run(path + " LANG=de_DE.UTF-8 ./message").output, HasSubstr(kGerman));
  EXPECT_THAT(run(path + " LANG=C ./message").output, HasSubstr(kEnglish));
}

TEST_F(Install, OfARelativePrefixPrintsWhereThatIs) {
  const auto last_step =
      run("unset DESTDIR; " QX_CMAKE " -DCMAKE_INSTALL_PREFIX=some/where -DQX_LOCALEDIR=share/locale -P " QX_SOURCE_DIR
          "/cmake/install/after_install.cmake");
  EXPECT_THAT(last_step.output,
              HasSubstr("NLSPATH=" + folder_->path() + "/some/where/share/locale/%L/LC_MESSAGES/%N:"));
}

TEST_F(Install, LeavesTheRunningSystemAloneUnlessItIsForIt) {
  EXPECT_THAT(printed_, HasSubstr("Records need the directories /var/adm/vosk/stacks and /var/adm/vosk/dumps"));
}

TEST_F(Install, HasALineForEachDirectoryWithoutAnAgeAndOneWithAnAgeAsAComment) {
  const std::string lines = files::read(prefix_ + "/lib/tmpfiles.d/qx_vosk.conf").value_or("");
  EXPECT_THAT(all_groups(lines, "^([^#].*)$"),
              ElementsAre("d /var/adm/vosk        0755 root root -", "d /var/adm/vosk/stacks 1777 root root -",
                          "d /var/adm/vosk/dumps  1777 root root -"));
  EXPECT_THAT(all_groups(lines, "^#d (/var/adm/vosk/[a-z]+) +1777 root root [0-9]+d$"),
              ElementsAre("/var/adm/vosk/stacks", "/var/adm/vosk/dumps"));
}

TEST_F(Install, HasLinesThatTmpfilesMakesTheDirectoriesFrom) {
  if (run("command -v systemd-tmpfiles").status != 0) CANNOT_RUN_HERE("systemd-tmpfiles is missing");
  succeeds("mkdir -p root/etc && echo root:x:0:0::/root:/bin/sh >root/etc/passwd && echo root:x:0: >root/etc/group");
  for (int time = 0; time < 2; ++time) {
    succeeds("systemd-tmpfiles --create --root=root " + prefix_ + "/lib/tmpfiles.d/qx_vosk.conf");
    EXPECT_EQ(run("cd root/var/adm; stat -c '%n %a %U' . vosk vosk/*").output,
              ". 755 root\nvosk 755 root\nvosk/dumps 1777 root\nvosk/stacks 1777 root\n");
  }
}

// The last step of an installation for the running system, which in here has a /var/adm/vosk of its own.
TEST_F(Install, OfASystemPrefixMakesTheDirectoriesByTmpfilesWhereItIsThereAndByItselfElsewhere) {
  const std::string asked = *folder_ / "asked", tmpfiles = *folder_ / "tmpfiles";
  ASSERT_TRUE(files::write(tmpfiles, "#!/bin/sh\necho \"$*\" >" + asked + "\n"));
  fs::permissions(tmpfiles, fs::perms::owner_all);
  const auto last_step = [](const std::string &prefix, const std::string &found) {
    fs::remove("/var/adm/vosk/stacks");
    fs::remove("/var/adm/vosk/dumps");
    return run("umask 077; unset DESTDIR; " QX_CMAKE " -DCMAKE_INSTALL_PREFIX=" + prefix +
               " -DQX_LOCALEDIR=share/locale -DSYSTEMD_TMPFILES=" + found +
               " -P " QX_SOURCE_DIR "/cmake/install/after_install.cmake");
  };
  for (const char *prefix : {"/usr", "/usr/local"}) {
    SCOPED_TRACE(prefix);
    EXPECT_EQ(last_step(prefix, tmpfiles).status, 0);
    EXPECT_EQ(files::read(asked), std::string("--create ") + prefix + "/lib/tmpfiles.d/qx_vosk.conf\n");
    EXPECT_FALSE(fs::exists("/var/adm/vosk/stacks"));
    EXPECT_EQ(last_step(prefix, "OFF").status, 0);
    EXPECT_EQ(run("stat -c '%a %U' /var/adm/vosk/stacks /var/adm/vosk/dumps").output, "1777 root\n1777 root\n");
  }
  EXPECT_EQ(last_step("/opt/vosk", "OFF").status, 0);
  EXPECT_FALSE(fs::exists("/var/adm/vosk/stacks"));
  sandbox::fresh({});
}

TEST_F(Install, OfASystemPrefixLeavesAloneWhatIsInADirectorysPlaceAndSaysWhatIsLeftToDo) {
  const std::string elsewhere = *folder_ / "elsewhere";
  const auto last_step = [](const std::string &place) {
    return run(
        "rmdir /var/adm/vosk/stacks; " + place +
        "; unset DESTDIR; " QX_CMAKE
        " -DCMAKE_INSTALL_PREFIX=/usr/local -DQX_LOCALEDIR=share/locale -DSYSTEMD_TMPFILES=OFF -P " QX_SOURCE_DIR
        "/cmake/install/after_install.cmake; stat -c 'now %F %a' /var/adm/vosk/stacks; rm -r /var/adm/vosk/stacks;"
        " mkdir /var/adm/vosk/stacks");
  };
  const std::string left = "stacks\" is not a directory; it is left", needed = "Records need the directories",
                    linker = "run once: ldconfig";
  const std::string linked =
      last_step("mkdir -m 0755 " + elsewhere + "; ln -s " + elsewhere + " /var/adm/vosk/stacks").output;
  EXPECT_THAT(linked, testing::AllOf(HasSubstr(left), HasSubstr("now symbolic link"), Not(HasSubstr(needed))));
  EXPECT_EQ(run("stat -c %a " + elsewhere).output, "755\n");
  EXPECT_THAT(last_step(": >/var/adm/vosk/stacks").output,
              testing::AllOf(HasSubstr(left), HasSubstr("now regular empty file"), HasSubstr(needed)));
  EXPECT_THAT(last_step(":").output, testing::AllOf(Not(HasSubstr(left)), HasSubstr("now directory 1777"),
                                                    Not(HasSubstr(needed)), HasSubstr(linker)));
}

TEST_F(Install, HasHardenedTools) {
  for (const char *tool : {"vosk", "vkstkrpt"}) {
    SCOPED_TRACE(tool);
    const std::string file = prefix_ + "/bin/" + tool;
    EXPECT_THAT(run("LC_ALL=C readelf -hW " + file).output, HasSubstr("DYN (Position-Independent Executable"));
    const std::string flags = run("LC_ALL=C readelf -dW " + file).output;
    EXPECT_THAT(flags, testing::ContainsRegex("FLAGS_1\\).*NOW.*PIE"));
    const std::string segments = run("LC_ALL=C readelf -lW " + file).output;
    EXPECT_THAT(segments, HasSubstr("GNU_RELRO"));
    EXPECT_THAT(segments, testing::ContainsRegex("GNU_STACK .* RW +0x"));
    const std::string wanted = run("LC_ALL=C nm -D --undefined-only " + file).output;
    EXPECT_THAT(wanted, HasSubstr("__stack_chk_fail"));
    if (QX_FORTIFIED) {
      EXPECT_THAT(all_groups(wanted, " (__[a-z]+_chk)@"), Not(IsEmpty())) << "_FORTIFY_SOURCE";
    }
  }
}

}  // namespace
