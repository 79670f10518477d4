// Catalogues that a test writes for itself, and the environment in which they are found.

#ifndef TESTS_CU_CATALOGUE_FILES_H
#define TESTS_CU_CATALOGUE_FILES_H

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A directory that NLSPATH points to, with one catalogue "vosk.cat" per language; the locale is "C" and LANG is "test".
class CatalogueTest : public testing::Test {
 protected:
  CatalogueTest() {
    std::string name = testing::TempDir() + "qx-catalogue-XXXXXX";
    root_ = mkdtemp(name.data());
    setenv("NLSPATH", (root_ / "%L" / "%N").c_str(), 1);
    setenv("LANG", "test", 1);
    setlocale(LC_ALL, "C");
  }
  ~CatalogueTest() override {
    unsetenv("NLSPATH");
    unsetenv("LANG");
    setlocale(LC_ALL, "C");
    std::filesystem::remove_all(root_);
  }

  std::filesystem::path path(const std::string &language = "test") const {
    std::filesystem::create_directories(root_ / language);
    return root_ / language / "vosk.cat";
  }

  void write_bytes(const std::string &bytes) const {
    std::ofstream(path(), std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<long>(bytes.size()));
  }

  // Compiles messages of set 1, as "7 \"text\"\n" with gencat's escapes.
  void compile(const std::string &messages, const std::string &language = "test") const {
    const std::filesystem::path source = root_ / "source.msg", catalogue = path(language);
    std::ofstream(source) << "$quote \"\n$set 1\n" << messages;
    std::filesystem::remove(catalogue);
    ASSERT_EQ(std::system((std::string(QX_GENCAT) + " " + catalogue.string() + " " + source.string()).c_str()), 0);
  }

  static std::string bytes_of(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::filesystem::path root_;
};

#endif
