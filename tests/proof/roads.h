// The twelve roads through the library that faults and kills are tried on, each in surroundings that are the same every
// time: fixed clock, fixed interfaces, a stack, a trace file and a detail file of known content.
#ifndef QX_TESTS_PROOF_ROADS_H
#define QX_TESTS_PROOF_ROADS_H

#include <qx_vosk.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/stack_model.h"

namespace proof {

constexpr std::int64_t kSeconds = 1700000000;  // 2023-11-14 22:13:20
constexpr std::int64_t kMicroseconds = 123456;
constexpr const char *kAddress = "8.../....................";  // 10.0.0.1

extern const std::string kStack;      // what VOSKSTACK names
extern const std::string kTraceFile;  // what VOSKDEBUG names when tracing is on
extern const std::string kDetail;     // the caller's detail file
extern const std::string kDetailBytes;
std::string copy_path(int pid);  // where the copy of the detail file goes

// What the stack file is like before the call.
enum class State { kMissing, kFresh, kPartlyFilled, kFull, kWrapped };
std::string to_string(State state);
// The bytes of each state, by the model. Full: the next record does not fit behind the last one, and the file has never
// wrapped. Wrapped: it has, and the next record needs room that old records hold.
stack_model::File file_in(State state);

// What a call did, as its caller sees it.
struct Seen {
  int code = 0;
  std::string identifier;  // the caller's buffer afterwards
  std::string output;      // what else came out: printed lines, decoded fields, variables
};

struct Road {
  std::string name;
  bool uses_stack;
  State state;                    // by default
  std::function<void()> prepare;  // the surroundings, beside the common ones
  std::function<void()> body;     // the call under test and nothing else
  std::function<Seen()> look;     // after the call
};

const std::vector<Road> &roads();
const Road &road(const std::string &name);

enum class Tracing { kOff, kOn };

// What a pushing road records when process `pid`, a child of `parent`, takes it.
stack_model::Push push_of(const Road &road, std::uint64_t inode, int pid, int parent);
// The writes that a road makes to the file that it makes or changes, in order, by the models. Roads that use no stack
// have none, but for the first trace line.
std::vector<stack_model::Write> writes_of(const Road &road, State state, const stack_model::Push &push, int pid);

// Puts everything in place for one run of the road.
void lay_out(const Road &road, Tracing tracing, State state);
// Makes this process the owner of an environment with the stack.
void own_environment();
// Fixes clock and interfaces of the run.
void plan(platform::Calls &calls);

}  // namespace proof

#endif
