#include "roads.h"

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "crowd.h"
#include "floors.h"
#include "qx_vosk.h"
#include "stage.h"
#include "states.h"

namespace bench {
namespace {

constexpr char kTrace[] = "/var/adm/trace";
vk_eid_t eid;

void push_with_arguments() {
  expect_success(vk_push_stack_1(&eid, nullptr, "bench", "product", "bench.cc", "1.0", 17, 0, "details", nullptr,
                                 "x.cat", 1, 2, "an order %s %d", "late", 5));
}

void push_longer() {
  expect_success(vk_push_stack_1(&eid, nullptr, "bench", "product", "bench.cc", "1.0", 17, 0, "many more details",
                                 nullptr, "x.cat", 1, 2, "an order is late"));
}

void trace_once() {
  expect_success(vk_debug(kTrace, "bench", "A line of %d words\n", 5));
}

// `processes` of them push into one stack at once; the time is that of all until the last is done.
subject together(const std::string &stack, int processes, const std::function<void()> &once) {
  const int each = kPushesAStack / processes;
  const auto waiting = std::make_shared<std::unique_ptr<crowd>>();
  return {.block = [=] { (*waiting)->run(); },
          .calls = processes * each,
          .before =
              [=] {
                waiting->reset();
                empty_stack(stack);
                *waiting = std::make_unique<crowd>(processes, [=] {
                  for (int i = 0; i < each; ++i) once();
                });
              }};
}

subject repeated(const std::function<void()> &once, int calls, const std::function<void()> &before = {}) {
  return {.block =
              [=] {
                for (int i = 0; i < calls; ++i) once();
              },
          .calls = calls,
          .before = before};
}

}  // namespace

void push_once() {
  expect_success(vk_push_stack_1(&eid, nullptr, "bench", "product", "bench.cc", "1.0", 17, 0, "details", nullptr,
                                 "x.cat", 1, 2, "an order is late"));
}

void log_once() {
  expect_success(vk_log_error_1(&eid, nullptr, "bench", "product", "bench.cc", "1.0", 17, 0, VOSK_ERROR, 0, "details",
                                7, nullptr, "an order %d", 5));
}

namespace {

// What all roads are measured with.
struct bench_run {
  const std::string &stack;
  int milliseconds, attempts;
  const std::function<void(const row &)> &shown;

  void measure(const std::string &name, const subject &ours, const subject &floor, double goal) const {
    comparison best = compare(ours, floor, milliseconds, counted::fastest_block);
    for (int attempt = 1; attempt < attempts && best.ratio > goal + kTolerance; ++attempt) {
      const comparison again = compare(ours, floor, milliseconds * 2, counted::fastest_block);
      if (again.ratio < best.ratio) best = again;
    }
    shown({name, best, goal});
  }
};

void measure_pushes(const bench_run &run) {
  const std::string &stack = run.stack;
  const char *const file = stack.c_str();
  const auto fresh = [&] { empty_stack(stack); };
  push_once();  // creates the file
  const std::size_t record = record_size(stack, push_once);
  const std::size_t record_with_arguments = record_size(stack, push_with_arguments);
  run.measure("push", repeated(push_once, kPushesAStack, fresh),
              repeated([&] { floor_push(kStacks, file, record, 0); }, kPushesAStack, fresh), 1.10);
  run.measure("push with arguments", repeated(push_with_arguments, kPushesAStack, fresh),
              repeated([&] { floor_push(kStacks, file, record_with_arguments, 0); }, kPushesAStack, fresh), 1.12);

  const full_stack full = fill_stack(stack, push_longer, push_once);
  const auto refill = [&] { put_back(stack, full.bytes); };
  run.measure("wrapped push", repeated(push_once, 1, refill),
              repeated([&] { floor_wrapped_push(kStacks, file, record, full.cleared); }, 1, refill), 1.10);
  const auto gone = [&] { (void)unlink(file); };
  run.measure("first push", repeated(push_once, 1, gone),
              repeated([&] { floor_first_push(kStacks, file, record); }, 1, gone), 1.18);
  for (const int processes : {2, 4, 8})
    run.measure("push, " + std::to_string(processes) + " processes on one stack", together(stack, processes, push_once),
                together(stack, processes, [&] { floor_push(kStacks, file, record, 1); }), 1.15);
}

void measure_log(const bench_run &run) {
  run.measure("log", repeated(log_once, 50), repeated(floor_log, 50), 1.28);
}

// Discovery leaves a descriptor open with every call.
void close_sockets() {
  (void)close_range(64, ~0U, 0);
}

void decode(const char *identifier) {
  unsigned int on_node, version, location, templ, facility, priority, ipv6;
  timeval time;
  char names[256], address[16];
  expect_success(vk_decode_eid_2(0, nullptr, identifier, &on_node, &version, &location, names, 1, &templ, &facility,
                                 &priority, &time, address, &ipv6));
}

void measure_identifiers(const bench_run &run) {
  const char *const file = run.stack.c_str();
  std::int64_t seconds;
  vk_eid_t of_stack, of_log;
  run.measure(
      "stack identifier",
      repeated([&] { expect_success(vk_generate_eid_2(0, nullptr, file, 0, ~0U, ~0U, &seconds, of_stack)); }, 1000),
      repeated([&] { floor_stack_identifier(file); }, 1000), 1.15);
  run.measure(
      "System Log identifier",
      repeated([&] { expect_success(vk_generate_eid_2(0, nullptr, nullptr, 0, 24, 3, &seconds, of_log)); }, 5000),
      repeated(floor_syslog_identifier, 5000), 2.0);
  run.measure("decode", repeated([&] { decode(of_log); }, 100, close_sockets),
              repeated(floor_decode, 100, close_sockets), 1.38);
  for (int i = 0; i < 500; ++i) std::ofstream(std::string(kStacks) + "/other." + std::to_string(i));
  run.measure("decode with the file search (500 stacks)", repeated([&] { decode(of_stack); }, 100, close_sockets),
              repeated([] { floor_decode_with_search(kStacks); }, 100, close_sockets), 1.12);
  for (int i = 0; i < 500; ++i) std::filesystem::remove(std::string(kStacks) + "/other." + std::to_string(i));
}

void measure_traces(const bench_run &run) {
  const trace_states trace = fill_trace(kTrace, trace_once);
  const auto untraced = [&] { put_back(kTrace, trace.fresh); };
  run.measure("trace line", repeated(trace_once, 50, untraced),
              repeated([&] { floor_trace_line(kTrace, trace.entry, 0); }, 50, untraced), 1.40);
  const auto recycled = [&] { put_back(kTrace, trace.recycled); };
  run.measure("trace line, recycled file", repeated(trace_once, 50, recycled),
              repeated([&] { floor_trace_line(kTrace, trace.entry, trace.remains); }, 50, recycled), 1.40);

  const std::size_t record = record_size(run.stack, push_once);
  const auto traced = [&] {
    empty_stack(run.stack);
    put_back(kTrace, trace.fresh);
    (void)setenv("VOSKDEBUG", kTrace, 1);
  };
  traced();
  push_once();
  const std::vector<std::size_t> entries = entry_lengths(kTrace);
  run.measure(
      "traced push, " + std::to_string(entries.size()) + " lines", repeated(push_once, 1, traced),
      repeated([&] { floor_traced_push(kStacks, run.stack.c_str(), record, kTrace, entries.data(), entries.size()); },
               1, traced),
      1.60);
  (void)unsetenv("VOSKDEBUG");
}

void measure_computations(const bench_run &run) {
  run.measure("environment test", repeated([] { expect_success(vk_test_stack_1()); }, 1000),
              repeated(floor_environment_test, 1000), 1.4);
  const auto there_and_back = [] {
    char digits[8];
    (void)vk_l64a_r(1795260757, digits, 8);
    volatile std::uint64_t value = vk_a64l(digits);
    (void)value;
  };
  run.measure("base 64, both ways", repeated(there_and_back, 10000), repeated([] { floor_base64(1795260757); }, 10000),
              1.5);
}

void measure_files(const bench_run &run) {
  const std::string reserved = "/var/adm/reserved", input = "/var/adm/input";
  std::ofstream(input) << std::string(10000, 'x');
  const auto none = [&] { (void)unlink(reserved.c_str()); };
  std::int64_t size;
  run.measure(
      "reservation",
      repeated([&] { expect_success(vk_allocate_file(0, nullptr, reserved.c_str(), 16384, 8192, &size)); }, 1, none),
      repeated([&] { floor_reserve("/var/adm", reserved.c_str()); }, 1, none), 1.10);
  const auto no_copies = [] {
    for (const auto &entry : std::filesystem::directory_iterator(kDumps)) std::filesystem::remove(entry.path());
  };
  char copy[4096];
  const std::string output = std::string(kDumps) + "/qx_bench.4711.20261121.120000";
  run.measure("detail copy of 10,000 bytes",
              repeated([&] { expect_success(vk_make_dump_file_copy(0, nullptr, input.c_str(), copy)); }, 1, no_copies),
              repeated([&] { floor_detail_copy(input.c_str(), kDumps, output.c_str()); }, 1, no_copies), 1.18);
}

}  // namespace

void measure_roads(const std::string &stack, int milliseconds, int attempts,
                   const std::function<void(const row &)> &shown) {
  const bench_run run = {stack, milliseconds, attempts, shown};
  measure_pushes(run);
  measure_log(run);
  measure_identifiers(run);
  measure_traces(run);
  measure_computations(run);
  measure_files(run);
}

}  // namespace bench
