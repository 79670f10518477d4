// Which tests there are, how long each takes, and which get into which routine.
#ifndef QX_TESTS_MUTANTS_TESTS_OF_H
#define QX_TESTS_MUTANTS_TESTS_OF_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "mutants/program.h"

namespace mutants {

struct Test {
  std::string name;
  Program program;
  double seconds = 0;
};

// The tests of a build that can notice a fault in the library, as ctest lists them.
std::vector<Test> tests_in(const std::string &build);

// A routine that a test went into: where it begins in the source.
struct Place {
  std::string file;  // from the root of the tree
  std::size_t line;
  bool operator<(const Place &other) const { return std::tie(file, line) < std::tie(other.file, other.line); }
};

class Reach {
 public:
  void add(const Place &place) { (void)tests_[place]; }
  void add(const Place &place, const std::string &test) { tests_[place].insert(test); }
  // Those that went into the routine that holds this line, or near it where routines stand in each other.
  std::set<std::string> routine(const std::string &file, std::size_t line) const;
  std::set<std::string> whole_file(const std::string &file) const;
  const std::map<Place, std::set<std::string>> &all() const { return tests_; }

 private:
  std::map<Place, std::set<std::string>> tests_;
};

// The routines of a library with debug information, by their offsets in it.
std::map<std::size_t, Place> routines_of(const std::string &library, const std::string &tree);

}  // namespace mutants

#endif
