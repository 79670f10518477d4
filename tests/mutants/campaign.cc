#include "mutants/campaign.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <new>
#include <set>
#include <sstream>
#include <stdexcept>

namespace mutants {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char *kLibraries[] = {"libqx_vosk.so.1", "libqx_vosk_open.so", "libqx_cu.so.1"};
constexpr std::size_t kMarks = 1 << 20;  // as in reach.c
constexpr double kLongestBuild = 300;

std::string read(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write(const std::string &path, const std::string &bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << bytes) || !file.flush()) throw std::runtime_error("cannot write " + path);
}

// A counter that the workers share.
class Turns {
 public:
  Turns()
      : next_(new (mmap(nullptr, sizeof(std::atomic<std::size_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                        -1, 0)) std::atomic<std::size_t>(0)) {}
  std::size_t take() { return next_->fetch_add(1); }

 private:
  std::atomic<std::size_t> *next_;
};

// Runs `body` for the numbers 1 to `jobs`, each in a process of its own; throws where one fails.
void in_processes(std::size_t jobs, const std::function<void(std::size_t)> &body) {
  std::vector<pid_t> children;
  for (std::size_t number = 1; number <= jobs; ++number) {
    const pid_t child = fork();
    if (child == 0) {
      try {
        body(number);
        std::cout.flush();
        _exit(0);
      } catch (const std::exception &problem) {
        std::cerr << "mutants: " << problem.what() << "\n";
        _exit(1);
      }
    }
    children.push_back(child);
  }
  bool failed = false;
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    failed = failed || status != 0;
  }
  if (failed) throw std::runtime_error("a worker failed");
}

// One of the mapping build's libraries, and the marks that a test leaves.
class Marks {
 public:
  Marks(const std::string &library, const std::string &tree)
      : path_(library + ".reach"), routines_(routines_of(library, tree)) {}
  void clear() const {
    write(path_, std::string(kMarks, '\0'));
    fs::permissions(path_, fs::perms::all & ~fs::perms(0111));
  }
  void collect(const std::string &test, std::ostream &out) const {
    const std::string marks = read(path_);
    for (const auto &[offset, place] : routines_) {
      if (offset < marks.size() && marks[offset] != 0) out << place.file << ' ' << place.line << ' ' << test << '\n';
    }
  }
  void list(std::ostream &out) const {
    for (const auto &[offset, place] : routines_) out << place.file << ' ' << place.line << '\n';
  }

 private:
  std::string path_;
  std::map<std::size_t, Place> routines_;
};

void map_some(const Area &area, const std::vector<Test> &tests, Turns &turns, std::size_t number) {
  const std::string libraries = area.root + "/mapping-" + std::to_string(number);
  fs::remove_all(libraries);
  fs::copy(area.mapping() + "/build/lib", libraries, fs::copy_options::copy_symlinks | fs::copy_options::recursive);
  std::vector<Marks> marks;
  for (const char *library : kLibraries) marks.emplace_back(libraries + "/" + library, area.mapping());
  std::ofstream out(libraries + "/reached"), times(libraries + "/times");
  for (const Marks &of_library : marks) of_library.list(out);
  enter_with_libraries(libraries, area.place());
  for (std::size_t i; (i = turns.take()) < tests.size();) {
    const Test &test = tests[i];
    for (const Marks &of_library : marks) of_library.clear();
    Outcome outcome = run(test.program, 600, libraries + "/log");
    if (outcome.status != 0) outcome = run(test.program, 600, libraries + "/log");
    if (outcome.status != 0) {
      std::fprintf(stderr, "mutants: left out, since it fails without any mutation: %s\n", test.name.c_str());
      times << test.name << " -1\n";
      continue;
    }
    for (const Marks &of_library : marks) of_library.collect(test.name, out);
    times << test.name << ' ' << outcome.seconds << '\n';
  }
}

class Worker {
 public:
  Worker(const Area &area, const std::vector<Test> &tests, const Reach &reach, std::size_t number)
      : area_(area), tests_(tests), reach_(reach), tree_(area.worker(number)) {
    for (const char *library : kLibraries) original_.push_back(read(tree_ + "/build/lib/" + library));
    enter_with_libraries(tree_ + "/build/lib", area.place());
  }

  Result examine(const Mutant &mutant) {
    const std::string path = tree_ + "/" + mutant.file, source = read(area_.tests() + "/" + mutant.file);
    if (!mutated_.empty() && mutated_ != mutant.file)
      write(tree_ + "/" + mutated_, read(area_.tests() + "/" + mutated_));
    mutated_ = mutant.file;
    write(path, applied(source, mutant.mutation));
    if (!built()) return {"refused", ""};
    if (is_identical()) return {"identical", ""};
    for (const Test *test : tests_for(mutant)) {
      // Generous: the machine may do something else, too.
      const Outcome outcome = run(test->program, 5 * test->seconds + 10);
      if (outcome.status == 0 || outcome.status == 77) continue;
      ++kills_[mutant.file][test->name];
      return {"killed", test->name};
    }
    return {"survived", ""};
  }

 private:
  bool built() const {
    const Program build{{"/usr/bin/cmake", "--build", tree_ + "/build", "--parallel", "1", "--target", "qx_vosk",
                         "qx_vosk_open", "qx_cu"},
                        {"CCACHE_DISABLE=1"},
                        tree_};
    return run(build, kLongestBuild, tree_ + "/build.log").status == 0;
  }
  bool is_identical() const {
    for (std::size_t i = 0; i < original_.size(); ++i) {
      if (read(tree_ + "/build/lib/" + kLibraries[i]) != original_[i]) return false;
    }
    return true;
  }
  // Those that go into the changed routine come first, then those that go into the file; each group begins with what
  // has found faults of this file before, and with what is quick.
  std::vector<const Test *> tests_for(const Mutant &mutant) {
    const bool header = mutant.file.back() == 'h';
    std::set<std::string> near, far = reach_.whole_file(mutant.file);
    if (mutant.mutation.in_body && !header) near = reach_.routine(mutant.file, mutant.line);
    if (far.empty() || header) {  // what only the compiler evaluates leaves no mark
      for (const Test &test : tests_) far.insert(test.name);
    }
    std::vector<const Test *> out;
    for (const Test &test : tests_) {
      if (test.seconds >= 0 && (near.count(test.name) != 0 || far.count(test.name) != 0)) out.push_back(&test);
    }
    std::map<std::string, int> &kills = kills_[mutant.file];
    const auto key = [&](const Test *test) {
      return std::make_tuple(near.count(test->name) == 0, -kills[test->name], test->seconds);
    };
    std::stable_sort(out.begin(), out.end(), [&](const Test *a, const Test *b) { return key(a) < key(b); });
    return out;
  }

  const Area &area_;
  const std::vector<Test> &tests_;
  const Reach &reach_;
  const std::string tree_;
  std::vector<std::string> original_;
  std::string mutated_;
  std::map<std::string, std::map<std::string, int>> kills_;
};

}  // namespace

std::vector<Mutant> mutants_of(const std::string &tree) {
  std::set<std::string> files;
  for (const char *folder : {"lib", "utils"}) {
    for (const auto &entry : fs::recursive_directory_iterator(tree + "/" + folder)) {
      const std::string extension = entry.path().extension();
      if (extension == ".cc" || extension == ".h") files.insert(fs::relative(entry.path(), tree));
    }
  }
  std::vector<Mutant> out;
  for (const std::string &file : files) {
    const std::string source = read(tree + "/" + file);
    std::size_t number = 0;
    for (const Mutation &mutation : mutations_of(source)) {
      out.push_back({file, file + "#" + std::to_string(number++), line_of(source, mutation), mutation,
                     changed_line(source, mutation)});
    }
  }
  return out;
}

Results read_results(const std::string &path) {
  Results out;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name, fate, test;
    words >> name >> fate >> test;
    out[name] = {fate, test == "-" ? "" : test};
  }
  return out;
}

void add_result(const std::string &path, const Mutant &mutant, const Result &result) {
  const std::string line = mutant.name + " " + result.fate + " " + (result.test.empty() ? "-" : result.test) +
                           " line " + std::to_string(mutant.line) + ": " + mutant.changed + "\n";
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  const bool written = fd >= 0 && ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  if (fd >= 0) close(fd);
  if (!written) throw std::runtime_error("cannot write " + path);
}

Reach mapped(const Area &area, std::vector<Test> &tests, std::size_t jobs) {
  Turns turns;
  in_processes(jobs, [&](std::size_t number) { map_some(area, tests, turns, number); });
  Reach reach;
  std::map<std::string, double> seconds;
  for (std::size_t number = 1; number <= jobs; ++number) {
    const std::string libraries = area.root + "/mapping-" + std::to_string(number);
    std::ifstream reached(libraries + "/reached"), times(libraries + "/times");
    for (std::string line; std::getline(reached, line);) {
      std::istringstream words(line);
      Place place;
      std::string test;
      words >> place.file >> place.line;
      words >> test ? reach.add(place, test) : reach.add(place);
    }
    std::string name;
    for (double value; times >> name >> value;) seconds[name] = value;
  }
  for (Test &test : tests) test.seconds = seconds[test.name];
  return reach;
}

void work(const Area &area, const std::vector<const Mutant *> &mutants, const std::vector<Test> &tests,
          const Reach &reach, std::size_t jobs, double seconds) {
  const Clock::time_point start = Clock::now();
  Turns turns;
  in_processes(jobs, [&](std::size_t number) {
    Worker worker(area, tests, reach, number);
    for (std::size_t i; (i = turns.take()) < mutants.size();) {
      if (std::chrono::duration<double>(Clock::now() - start).count() > seconds) return;
      const Mutant &mutant = *mutants[i];
      const Result result = worker.examine(mutant);
      add_result(area.results(), mutant, result);
      std::printf("%4zu/%zu %-9s %s:%zu: %s %s\n", i + 1, mutants.size(), result.fate.c_str(), mutant.file.c_str(),
                  mutant.line, mutant.changed.c_str(), result.test.empty() ? "" : ("(" + result.test + ")").c_str());
      std::fflush(stdout);
    }
  });
}

}  // namespace mutants
