// Runs a fuzz target without a fuzzer: every file of the directories given, then mutations of them.
// usage: TARGET [-runs=N] [-seed=N] DIRECTORY...
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz/target.h"

namespace {

std::vector<std::string> inputs;
std::mt19937 source;

std::size_t below(std::size_t end) {
  return end == 0 ? 0 : source() % end;
}

void run(const std::string &bytes) {
  const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  LLVMFuzzerTestOneInput(copy.get(), bytes.size());
}

// A few small changes: bits, bytes with a meaning, pieces cut out, repeated or taken from another input.
std::string mutated(std::string bytes) {
  constexpr char kBytes[] = {'\0', '\1', '\n', '%', '/', '.', '$', '7', '\x7f', '\x80', '\xff', '\x18'};
  for (std::size_t changes = 1 + below(6); changes != 0; --changes) {
    const std::size_t at = below(bytes.size());
    switch (below(6)) {
      case 0:
        if (!bytes.empty()) bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
        break;
      case 1:
        if (!bytes.empty()) bytes[at] = kBytes[below(sizeof kBytes)];
        break;
      case 2:
        bytes.erase(at, below(bytes.size() / 2 + 1));
        break;
      case 3:
        bytes.insert(at, bytes.substr(below(bytes.size()), below(40)));
        break;
      case 4: {
        const std::string &other = inputs[below(inputs.size())];
        bytes.replace(at, below(40), other.substr(below(other.size()), below(40)));
        break;
      }
      default:
        bytes.insert(at, 1, static_cast<char>(below(256)));
    }
  }
  return bytes;
}

}  // namespace

int main(int argc, char **argv) {
  unsigned long runs = 20000, seed = 20240229;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument.rfind("-runs=", 0) == 0) {
      runs = std::stoul(argument.substr(6));
    } else if (argument.rfind("-seed=", 0) == 0) {
      seed = std::stoul(argument.substr(6));
    } else if (argument[0] != '-') {
      for (const auto &file : std::filesystem::directory_iterator(argument)) {
        std::ifstream stream(file.path(), std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
      }
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "no seeds\n");
    return 1;
  }
  std::sort(inputs.begin(), inputs.end());  // the same order everywhere
  source.seed(static_cast<std::mt19937::result_type>(seed));
  for (const std::string &bytes : inputs) run(bytes);
  for (unsigned long i = 0; i < runs; ++i) run(mutated(inputs[below(inputs.size())]));
  std::printf("%zu seeds and %lu mutations, seed %lu\n", inputs.size(), runs, seed);
  return 0;
}
