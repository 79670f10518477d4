#include "run.h"
#include "verbs.h"

namespace {

int report_alone(const vosk::invocation &what) {
  return vosk::report(what.common, std::get<vosk::report_options>(what.verb));
}

}  // namespace

int main(int argc, char **argv) {
  return vosk::run("vkstkrpt", argc, argv, report_alone);
}
