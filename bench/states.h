// The states of the files in which a road starts.
#ifndef BENCH_STATES_H
#define BENCH_STATES_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

std::string bytes_of(const std::string &path);
// Writes `bytes` over the start of the file.
void put_back(const std::string &path, const std::string &bytes);

// Makes the stack file as if it had never been recorded to.
void empty_stack(const std::string &stack);

// The bytes that the record of `push` takes in the file.
std::size_t record_size(const std::string &stack, const std::function<void()> &push);

// A stack in which `push` is the first that wraps, and how much that clears of the oldest record. That one was made by
// `longer_push`: the standard reclamation clears less than a record occupies, and would take what is left of one of the
// same length for the length of the next.
struct full_stack {
  std::string bytes;
  std::size_t cleared;
};
full_stack fill_stack(const std::string &stack, const std::function<void()> &longer_push,
                      const std::function<void()> &push);

// A trace file to which nothing was written yet, and one in which writing has just started again in front of older
// entries; all are of one length.
struct trace_states {
  std::string fresh, recycled;
  std::size_t entry;    // its length
  std::size_t remains;  // what is cleared, in the recycled file, of the older entry that the end marker cuts into
};
trace_states fill_trace(const std::string &trace, const std::function<void()> &line);

// The lengths of the entries that a trace file begins with, up to its end marker.
std::vector<std::size_t> entry_lengths(const std::string &trace);

}  // namespace bench

#endif
