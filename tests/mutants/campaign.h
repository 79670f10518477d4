// A campaign: mutants of the library, each built and given to the tests that reach it.
#ifndef QX_TESTS_MUTANTS_CAMPAIGN_H
#define QX_TESTS_MUTANTS_CAMPAIGN_H

#include <map>
#include <string>
#include <vector>

#include "mutants/mutation.h"
#include "mutants/tests_of.h"

namespace mutants {

struct Mutant {
  std::string file, name;  // the name is FILE#NUMBER
  std::size_t line;
  Mutation mutation;
  std::string changed;
};

// Every mutant of the sources in lib/ and utils/ of a tree.
std::vector<Mutant> mutants_of(const std::string &tree);

struct Result {
  std::string fate;  // "killed", "identical" (the same library came out), "refused" (it does not compile), "survived"
  std::string test;  // that killed it
};
using Results = std::map<std::string, Result>;  // by the mutant's name

// A file of results; one line is added for each mutant as soon as its fate is known.
Results read_results(const std::string &path);
void add_result(const std::string &path, const Mutant &mutant, const Result &result);

// The folders of one scratch area, as cmake/dev/mutants.sh lays them out.
struct Area {
  std::string root;
  std::string tests() const { return root + "/tests"; }  // a tree with the tests built
  std::string place() const { return tests() + "/build/lib"; }
  std::string mapping() const { return root + "/mapping"; }  // one whose libraries mark what is reached
  std::string worker(std::size_t number) const { return root + "/worker-" + std::to_string(number); }
  std::string results() const { return root + "/results"; }
};

// Runs every test once with the marking libraries; fills in how long each takes; less than nothing
// for one that fails even so, or cannot run here.
Reach mapped(const Area &area, std::vector<Test> &tests, std::size_t jobs);

// Gives the mutants to `jobs` workers, until all are done or the time is over.
void work(const Area &area, const std::vector<const Mutant *> &mutants, const std::vector<Test> &tests,
          const Reach &reach, std::size_t jobs, double seconds);

}  // namespace mutants

#endif
