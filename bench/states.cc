#include "states.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "measure.h"
#include "qx_vosk.h"

namespace bench {
namespace {

constexpr std::size_t kPositionAt = 8, kWrappedAt = 20, kFirstRecordAt = 24;
constexpr std::size_t kFirstEntryAt = 36, kEndMarker = 21;
constexpr char kStartOfEntry = '\001';

std::size_t number_at(const std::string &stack, std::size_t offset) {
  std::uint32_t number;
  std::memcpy(&number, stack.data() + offset, sizeof number);
  return number;
}

std::size_t header_number(const std::string &trace, const char *key) {
  return std::stoul(trace.substr(trace.find(key) + std::strlen(key)));
}

}  // namespace

std::string bytes_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void put_back(const std::string &path, const std::string &bytes) {
  const int fd = open(path.c_str(), O_RDWR);
  if (fd == -1 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
  (void)close(fd);
}

void empty_stack(const std::string &stack) {
  static const std::int32_t header[] = {0, 24, 24, 24, 16384, 0};
  put_back(stack, {reinterpret_cast<const char *>(header), sizeof header});
}

std::size_t record_size(const std::string &stack, const std::function<void()> &push) {
  empty_stack(stack);
  push();
  return number_at(bytes_of(stack), kPositionAt) - kFirstRecordAt;
}

full_stack fill_stack(const std::string &stack, const std::function<void()> &longer_push,
                      const std::function<void()> &push) {
  full_stack full;
  empty_stack(stack);
  longer_push();
  do {
    full.bytes = bytes_of(stack);
    push();
  } while (bytes_of(stack)[kWrappedAt] == 0);
  full.cleared = number_at(full.bytes, kFirstRecordAt) + 4;
  return full;
}

trace_states fill_trace(const std::string &trace, const std::function<void()> &line) {
  trace_states states;
  expect_success(vk_create_debug_file(trace.c_str()));
  states.fresh = bytes_of(trace);
  line();
  states.entry = header_number(bytes_of(trace), "VKTFO=") - header_number(states.fresh, "VKTFO=");
  do {
    line();
    states.recycled = bytes_of(trace);
  } while (header_number(states.recycled, "VKTFW=") == 0);
  states.remains = states.entry - kEndMarker;
  return states;
}

std::vector<std::size_t> entry_lengths(const std::string &trace) {
  const std::string bytes = bytes_of(trace);
  const std::size_t end = header_number(bytes, "VKTFO=");
  std::vector<std::size_t> lengths;
  for (std::size_t at = kFirstEntryAt; at < end; at += lengths.back())
    lengths.push_back(std::min(bytes.find(kStartOfEntry, at + 1), end) - at);
  return lengths;
}

}  // namespace bench
