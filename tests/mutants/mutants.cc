// Puts small faults into the library, one at a time, and reports how many of them the tests notice;
// cmake/dev/mutants.sh prepares the scratch area that it works in. usage: see below.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

#include "mutants/campaign.h"
#include "mutants/score.h"

namespace {

using namespace mutants;

struct Options {
  Area area;
  std::string equivalent;
  std::size_t sample = 400, jobs = 2;
  std::uint64_t seed = 0;
  double minutes = 60;
  bool all = false, list_tests = false;
};

Options options_of(int argc, char **argv) {
  Options out;
  const std::map<std::string, std::function<void(const std::string &)>> known = {
      {"--area", [&](const std::string &value) { out.area.root = value; }},
      {"--equivalent", [&](const std::string &value) { out.equivalent = value; }},
      {"--jobs", [&](const std::string &value) { out.jobs = std::stoul(value); }},
      {"--sample", [&](const std::string &value) { out.sample = std::stoul(value); }},
      {"--seed", [&](const std::string &value) { out.seed = std::stoull(value); }},
      {"--minutes", [&](const std::string &value) { out.minutes = std::stod(value); }}};
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    if (name == "--all") {
      out.all = true;
    } else if (name == "--list-tests") {
      out.list_tests = true;
    } else if (known.count(name) != 0 && i + 1 < argc) {
      known.at(name)(argv[++i]);
    } else {
      throw std::invalid_argument("not understood: " + name);
    }
  }
  if (out.area.root.empty()) throw std::invalid_argument("--area is needed");
  if (out.seed == 0) out.seed = std::random_device()() % 1000000 + 1;
  return out;
}

// Lines "FILE ## CHANGED LINE ## REASON": mutants that no test can notice.
std::map<std::string, std::string> explained_in(const std::string &path) {
  std::map<std::string, std::string> out;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::size_t reason = line.rfind(" ## ");
    if (line.empty() || line[0] == '#' || reason == std::string::npos) continue;
    out[line.substr(0, reason)] = line.substr(reason + 4);
  }
  return out;
}

struct Count {
  std::size_t killed = 0, survived = 0, identical = 0, explained = 0, refused = 0, open = 0;
};

Count counted(const std::vector<const Mutant *> &chosen, const Results &results,
              const std::map<std::string, std::string> &explained) {
  Count out;
  for (const Mutant *mutant : chosen) {
    const auto result = results.find(mutant->name);
    const std::string fate = result == results.end() ? "" : result->second.fate;
    const auto reason = explained.find(mutant->file + " ## " + mutant->changed);
    if (fate == "killed") {
      ++out.killed;
    } else if (fate == "identical") {
      ++out.identical;
    } else if (fate == "refused") {
      ++out.refused;
    } else if (fate.empty()) {
      ++out.open;
    } else if (reason != explained.end()) {
      ++out.explained;
    } else {
      ++out.survived;
      std::printf("survived  %s ## %s (line %zu)\n", mutant->file.c_str(), mutant->changed.c_str(), mutant->line);
    }
  }
  return out;
}

void print(const Count &count) {
  const std::size_t all = count.killed + count.survived;
  const auto [low, high] = interval(count.killed, all);
  std::printf(
      "%zu killed, %zu survived; besides %zu that change nothing (%zu give the same library, %zu are explained), "
      "%zu that do not compile, %zu not tried\n",
      count.killed, count.survived, count.identical + count.explained, count.identical, count.explained, count.refused,
      count.open);
  if (all != 0)
    std::printf("score %.1f %%, 95 %% interval %.1f to %.1f %%\n",
                100.0 * static_cast<double>(count.killed) / static_cast<double>(all), 100 * low, 100 * high);
}

int list_tests(const Options &options) {
  for (const Test &test : tests_in(options.area.tests() + "/build")) std::printf("%s\n", test.name.c_str());
  return 0;
}

int campaign(const Options &options) {
  const std::vector<Mutant> all = mutants_of(options.area.tests());
  const std::vector<std::size_t> order = shuffled(all.size(), options.seed);
  const std::size_t size = options.all ? all.size() : std::min(options.sample, all.size());
  std::vector<const Mutant *> chosen, left;
  for (std::size_t i = 0; i < size; ++i) chosen.push_back(&all[order[i]]);
  // In the order of the files, so that a change and its taking back are one compilation.
  std::sort(chosen.begin(), chosen.end());
  const Results before = read_results(options.area.results());
  for (const Mutant *mutant : chosen) {
    if (before.count(mutant->name) == 0) left.push_back(mutant);
  }
  std::printf("%zu mutants of %zu, seed %llu; %zu to try\n", chosen.size(), all.size(),
              static_cast<unsigned long long>(options.seed), left.size());
  std::fflush(stdout);
  if (!left.empty()) {
    std::vector<Test> tests = tests_in(options.area.tests() + "/build");
    std::printf("mapping which of %zu tests reaches what\n", tests.size());
    std::fflush(stdout);
    const Reach reach = mapped(options.area, tests, options.jobs);
    work(options.area, left, tests, reach, options.jobs, options.minutes * 60);
  }
  const Count count = counted(chosen, read_results(options.area.results()), explained_in(options.equivalent));
  print(count);
  if (count.open != 0) std::printf("go on with --seed %llu\n", static_cast<unsigned long long>(options.seed));
  return count.survived == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const Options options = options_of(argc, argv);
    return options.list_tests ? list_tests(options) : campaign(options);
  } catch (const std::exception &problem) {
    std::fprintf(stderr,
                 "mutants: %s\nusage: mutants --area DIRECTORY [--equivalent FILE] [--sample N | --all] [--seed N] "
                 "[--jobs N] [--minutes N] | --list-tests\n",
                 problem.what());
    return 2;
  }
}
