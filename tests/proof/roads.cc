#include "proof/roads.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/files.h"

namespace proof {

const std::string kStack = std::string(sandbox::kStacks) + "/road";
const std::string kTraceFile = std::string(sandbox::kRoot) + "/trace";
const std::string kDetail = std::string(sandbox::kRoot) + "/detail";
const std::string kDetailBytes = std::string(1024, 'd') + "and the rest of it\n";

namespace {

constexpr const char *kVariables[] = {"VOSKSTACK", "VOSKORIG",     "VOSKPID",     "VOSKADDR", "VOSKPNAME",
                                      "VOSKDEBUG", "VOSKSDISABLE", "VOSKRECLAIM", "COLUMNS",  "NLSPATH"};
constexpr const char *kIdentifierOfNode = "75Oh2...2zIZ/.7S..XO.8....................";

vk_eid_t buffer;
int code;
int saved_stdout = -1;

struct Decoded {
  unsigned on_node, version, location, templ, facility, priority, ipv6;
  char names[2][256];
  timeval time;
  std::uint32_t address[4];
} decoded;

void set_environment(int owner, int originator) {
  setenv("VOSKSTACK", kStack.c_str(), 1);
  setenv("VOSKORIG", std::to_string(originator).c_str(), 1);
  setenv("VOSKPID", std::to_string(owner).c_str(), 1);
  setenv("VOSKADDR", kAddress, 1);
  setenv("VOSKPNAME", "road", 1);
}

std::string variables() {
  std::string out;
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) {
    const char *value = getenv(name);
    out += std::string(name) + (value == nullptr ? " -" : std::string("=") + value) + "\n";
  }
  return out;
}

Seen look_at_recording() {
  return {code, std::string(buffer, sizeof buffer), ""};
}
Seen look_at_environment() {
  return {code, "", variables()};
}

void push() {
  code = vk_push_stack_1(&buffer, nullptr, "resource", "product", "file.c", "1.1", 17, 0, "the details", nullptr,
                         "app.cat", 1, 2, "message %d", 7);
}
void push_details() {
  code = vk_push_stack_1(&buffer, nullptr, "resource", "product", "file.c", "1.1", 17, 0, nullptr, kDetail.c_str(),
                         "app.cat", 1, 2, "message %d", 7);
}
void push_command() {
  code = vk_push_stack_cmd_1(&buffer, nullptr, "resource", "product", "file.c", "1.1", 17, 0, "the details", nullptr,
                             "app.cat", 1, 2, "message %d", 7);
}
void log() {
  code = vk_log_error_1(&buffer, nullptr, "resource", "product", "file.c", "1.1", 17, 0, VOSK_ERROR, 0, "data", 4,
                        nullptr, "message %d", 7);
}
void log_details() {
  code = vk_log_error_1(&buffer, nullptr, "resource", "product", "file.c", "1.1", 17, 0, VOSK_ERROR, 0, nullptr, 0,
                        kDetail.c_str(), "message %d", 7);
}

// An identifier of this node whose i-node is that of the stack file.
void make_identifier() {
  own_environment();
  std::int64_t seconds = 0;
  platform::Calls calls;
  plan(calls);
  calls.during(
      [&] { (void)vk_generate_eid_2(0, nullptr, kStack.c_str(), 0, 0xFFFFFFFF, 0xFFFFFFFF, &seconds, buffer); });
}

void decode() {
  code = vk_decode_eid_2(getenv("VOSKDEBUG") != nullptr ? 1 : 0, kTraceFile.c_str(), buffer, &decoded.on_node,
                         &decoded.version, &decoded.location, decoded.names[0], 2, &decoded.templ, &decoded.facility,
                         &decoded.priority, &decoded.time, decoded.address, &decoded.ipv6);
}
Seen look_at_decoded() {
  std::string out = "version " + std::to_string(decoded.version) + " location " + std::to_string(decoded.location) +
                    " seconds " + std::to_string(decoded.time.tv_sec) + "." + std::to_string(decoded.time.tv_usec) +
                    " address " + std::to_string(decoded.address[0]) + " on node " + std::to_string(decoded.on_node) +
                    " name " + decoded.names[0];
  return {code, "", out};
}

// Standard output goes to a file for the time of the call.
void redirect() {
  std::memcpy(buffer, kIdentifierOfNode, sizeof buffer);
  std::fflush(stdout);
  saved_stdout = dup(STDOUT_FILENO);
  int file = open((std::string(sandbox::kRoot) + "/printed").c_str(), O_CREAT | O_TRUNC | O_RDWR, 0600);
  dup2(file, STDOUT_FILENO);
  close(file);
}
void display() {
  code = vk_display_fid_main_1(buffer, 0);
}
Seen look_at_printed() {
  std::fflush(stdout);
  dup2(saved_stdout, STDOUT_FILENO);
  close(saved_stdout);
  return {code, "", files::read(std::string(sandbox::kRoot) + "/printed").value_or("nothing")};
}

void no_trace_file() {
  setenv("VOSKDEBUG", kTraceFile.c_str(), 1);
  unlink(kTraceFile.c_str());
}
// All three routines in the order in which every entry point uses them; the code is that of the first that fails.
void first_trace_line() {
  char path[4096] = {};
  code = vk_is_debug_file_set(path);
  if (code == 2) code = vk_create_debug_file(path);
  if (code == 0) code = vk_debug(path, "road", "the first of %d lines\n", 1);
}
Seen look_at_code() {
  return {code, "", ""};
}

stack_model::Record sized(std::size_t bytes, unsigned number) {
  stack_model::Push push;
  push.identifier = std::string(42, static_cast<char>('A' + number % 26));
  push.process_name = "filler";
  // The details stay empty: the last four bytes of a record can be taken for a length, and this way they are 0.
  push.message = std::string(bytes - stack_model::build(push).bytes.size(), 'x');
  return stack_model::build(push);
}

}  // namespace

void own_environment() {
  set_environment(getpid(), getpid());
}

std::string copy_path(int pid) {
  return std::string(sandbox::kDumps) + "/road." + std::to_string(pid) + ".20231114.221320";
}

std::string to_string(State state) {
  switch (state) {
    case State::kMissing:
      return "missing";
    case State::kFresh:
      return "fresh";
    case State::kPartlyFilled:
      return "partly filled";
    case State::kFull:
      return "full";
    case State::kWrapped:
      return "wrapped";
  }
  return "?";
}

stack_model::File file_in(State state) {
  if (state == State::kMissing) return {};
  stack_model::File file = stack_model::created(16384);
  if (state == State::kFresh) return file;
  unsigned number = 0;
  if (state == State::kPartlyFilled) {
    for (std::size_t bytes : {200u, 277u, 500u}) (void)stack_model::push(file, sized(bytes, number++));
    return file;
  }
  // 54 records of 300 bytes leave 160 bytes: too few for the next record.
  while (number < 54) (void)stack_model::push(file, sized(300, number++));
  // The record at the start clears what it replaces; the next one clears again.
  if (state == State::kWrapped) (void)stack_model::push(file, sized(300, number++));
  return file;
}

const std::vector<Road> &roads() {
  static const std::vector<Road> all = {
      {"create", false, State::kMissing, [] {}, [] { code = vk_init_main_1(VK_STACK_CREAT, "/bin/road", getpid(), 0); },
       look_at_environment},
      {"inherit", false, State::kMissing, [] { set_environment(1, 1); },
       [] { code = vk_init_main_1(VK_STACK_INHERIT, "road", getpid(), 0); }, look_at_environment},
      {"first push", true, State::kMissing, own_environment, push, look_at_recording},
      {"later push", true, State::kPartlyFilled, own_environment, push, look_at_recording},
      {"push that wraps", true, State::kFull, own_environment, push, look_at_recording},
      {"push for a command", true, State::kPartlyFilled, [] { set_environment(getppid(), 1); }, push_command,
       look_at_recording},
      {"push with a detail file", true, State::kPartlyFilled, own_environment, push_details, look_at_recording},
      {"log", false, State::kMissing, own_environment, log, look_at_recording},
      {"log with a detail file", false, State::kMissing, own_environment, log_details, look_at_recording},
      {"decode", false, State::kPartlyFilled, make_identifier, decode, look_at_decoded},
      {"display", false, State::kMissing, redirect, display, look_at_printed},
      {"first trace line", false, State::kMissing, no_trace_file, first_trace_line, look_at_code},
  };
  return all;
}

const Road &road(const std::string &name) {
  for (const Road &candidate : roads()) {
    if (candidate.name == name) return candidate;
  }
  std::abort();
}

stack_model::Push push_of(const Road &road, std::uint64_t inode, int pid, int parent) {
  const bool command = road.name == "push for a command";
  stack_model::Push push;
  char digits[8] = {};
  (void)vk_l64a_r(inode, digits, 6);
  std::string field = digits;
  field.resize(6, '.');
  push.identifier = "7" + field + ".2zIZ/.7S." + kAddress;
  push.seconds = kSeconds;
  push.process_name = "road";
  push.pid = command ? parent : pid;
  push.parent = command ? parent : 0;
  push.thread = static_cast<std::int32_t>(pthread_self());
  push.file = "file.c";
  push.version = "1.1";
  push.product = "product";
  push.line = 17;
  push.catalogue = "app.cat";
  push.set = 1;
  push.number = 2;
  push.message = "message %d";
  push.arguments = {{1, "", 7}};
  push.detail = road.name == "push with a detail file" ? copy_path(pid) : "the details";
  return push;
}

std::vector<stack_model::Write> writes_of(const Road &road, State state, const stack_model::Push &push, int pid) {
  std::vector<stack_model::Write> all;
  if (road.name == "first trace line") {
    all = stack_model::reservation_writes(16384);
    std::string entry = "\001Tue Nov 14 22:13:20 2023\n\tVOSK Routine: road\n\tCalled by PID " + std::to_string(pid) +
                        " Thread " + std::to_string(static_cast<int>(static_cast<unsigned>(pthread_self()))) +
                        "\n\tthe first of 1 lines\n";
    char header[37];
    std::snprintf(header, sizeof header, "VKTFO=%-5zu VKTFW=0     VKTFS=16384\n", 36 + entry.size());
    all.push_back({36, entry});
    all.push_back({static_cast<std::int64_t>(36 + entry.size()), "[END OF FINAL ENTRY]\n"});
    all.push_back({0, header});
    return all;
  }
  if (!road.uses_stack) return all;
  stack_model::File file = file_in(state);
  if (state == State::kMissing) {
    all = stack_model::reservation_writes(16384);
    for (const stack_model::Write &write : stack_model::creation_writes(16384)) all.push_back(write);
    file = stack_model::created(16384);
  }
  for (const stack_model::Write &write : stack_model::push(file, stack_model::build(push)).writes) all.push_back(write);
  return all;
}

void lay_out(const Road &road, Tracing tracing, State state) {
  for (const char *name : kVariables) unsetenv(name);
  for (const char *directory : {sandbox::kStacks, sandbox::kDumps}) {
    for (const std::string &name : files::list(directory)) unlink((std::string(directory) + "/" + name).c_str());
  }
  std::memset(buffer, '?', sizeof buffer);
  decoded = {};
  (void)files::write(kDetail, kDetailBytes);
  if (state != State::kMissing) (void)files::write(kStack, file_in(state).bytes);
  unlink(kTraceFile.c_str());
  if (tracing == Tracing::kOn) {
    std::string fresh = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
    fresh.resize(16384, '\0');
    (void)files::write(kTraceFile, fresh);
    setenv("VOSKDEBUG", kTraceFile.c_str(), 1);
  }
  road.prepare();
}

// The stack is found between two other files.
void plan(platform::Calls &calls) {
  calls.fixed_clock(kSeconds, kMicroseconds);
  calls.fake_interfaces(
      {{.name = "lo", .address = "127.0.0.1", .flags = 0x9}, {.name = "eth0", .address = "10.0.0.1", .flags = 0x1}});
  struct stat status = {};
  (void)stat(kStack.c_str(), &status);
  calls.fake_directory({{"other", status.st_ino + 1}, {"road", status.st_ino}, {"another", status.st_ino + 2}});
}

}  // namespace proof
