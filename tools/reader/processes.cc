#include "processes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

#include "collection.h"
#include "number.h"
#include "proc_file.h"
#include "safe_file.h"

namespace vosk {

namespace {

constexpr std::size_t kMostEnvironment = std::size_t{16} << 20;
constexpr std::int64_t kSlack = 2;  // clock ticks are rounded, and the clocks are read one after the other
constexpr std::int64_t kAlways = std::numeric_limits<std::int64_t>::min();

struct process_state {
  bool over = false;  // only its parent has not taken notice yet
  std::int64_t started = kAlways;
};

// Reads what /proc/PID/stat says.
std::optional<process_state> parse_stat(std::string_view text) {
  const std::vector<std::string_view> fields = stat_fields(text);
  std::int64_t threads = 0, ticks = 0;
  if (fields.size() <= kStart || !parse_number(fields[kThreads], threads) || !parse_number(fields[kStart], ticks))
    return std::nullopt;
  timespec now{}, since_boot{};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  (void)clock_gettime(CLOCK_BOOTTIME, &since_boot);
  process_state state;
  state.over = (fields[kState] == "Z" || fields[kState] == "X") && threads <= 1;
  state.started = now.tv_sec - since_boot.tv_sec + ticks / sysconf(_SC_CLK_TCK);
  return state;
}

// The line "NSpid:" of /proc/PID/status.
std::vector<int> parse_ids(const std::string &status) {
  constexpr std::string_view kLabel = "\nNSpid:";
  std::vector<int> ids;
  const std::size_t at = status.find(kLabel);
  if (at == std::string::npos) return ids;
  const std::size_t begin = at + kLabel.size(), end = std::min(status.find('\n', begin), status.size());
  const std::string_view line = status;
  for (const std::string_view number : split(line.substr(begin, end - begin), " \t"))
    if (int id = 0; parse_number(number, id)) ids.push_back(id);
  return ids;
}

std::vector<std::string> parse_environment(std::string_view environment) {
  constexpr std::string_view kVariable = "VOSKSTACK=";
  std::vector<std::string> stacks;
  for (const std::string_view text : split(environment, std::string_view("\0", 1))) {
    if (!text.starts_with(kVariable)) continue;
    const std::string_view path = text.substr(kVariable.size());
    stacks.emplace_back(path.substr(path.rfind('/') + 1));
  }
  return stacks;
}

// By how much the clock was put forward since the boot, as where a machine slept in a snapshot: starts of processes are
// told by so much too late. The kernel makes its devices when it boots, and nothing changes the time of this one.
std::int64_t put_forward() {
  constexpr long kTmpfs = 0x01021994;  // what the kernel's own /dev is, too
  struct statfs fs {};
  struct stat st {};
  if (statfs("/dev/null", &fs) != 0 || fs.f_type != kTmpfs || stat("/dev/null", &st) != 0) return 0;
  timespec now{}, since_boot{};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  (void)clock_gettime(CLOCK_BOOTTIME, &since_boot);
  return std::max<std::int64_t>(0, now.tv_sec - since_boot.tv_sec - st.st_mtim.tv_sec);
}

}  // namespace

std::optional<std::int64_t> start_of_process(int pid) {
  const auto text = proc_file(pid, "stat");
  const auto state = parse_stat(text.value_or(""));
  return state ? std::optional(state->started) : std::nullopt;
}

std::optional<process_table> process_table::read(std::string &why) {
  std::vector<directory_entry> entries;
  const unique_fd proc = open_directory(AT_FDCWD, "/proc", true);
  if (!proc.valid() || !list_directory(proc.get(), entries)) {
    why = "/proc: " + error_text(errno);
    return std::nullopt;
  }
  process_table table;
  table.slack_ = kSlack + put_forward();
  bool itself = false, first = false;
  for (const directory_entry &entry : entries) {
    running_process process;
    if (!parse_number(entry.name, process.pid)) continue;
    itself = itself || process.pid == getpid();
    first = first || process.pid == 1;
    const auto stat = proc_file(process.pid, "stat"), status = proc_file(process.pid, "status");
    const auto state = parse_stat(stat.value_or(""));
    if (faccessat(proc.get(), entry.name.c_str(), F_OK, 0) != 0 || (state && state->over)) continue;
    process.started = state ? state->started : kAlways;
    process.ids = parse_ids(status.value_or(""));
    if (process.ids.empty()) process.ids = {process.pid};
    const auto environment = proc_file(process.pid, "environ", kMostEnvironment);
    if (environment)
      process.stacks = parse_environment(*environment);
    else if (errno != ESRCH && errno != ENOENT)  // a thread of the kernel's, which has none; or it ended meanwhile
      ++table.unreadable_;
    table.processes_.push_back(std::move(process));
  }
  if (itself && first) return table;
  why = "/proc does not show all processes";
  return std::nullopt;
}

const running_process *process_table::with_id(int pid, std::int64_t seconds) const {
  const auto found = std::find_if(processes_.begin(), processes_.end(), [&](const running_process &p) {
    const bool has_id = std::find(p.ids.begin(), p.ids.end(), pid) != p.ids.end();
    return has_id && (p.started == kAlways || p.started <= seconds + slack_);
  });
  return found == processes_.end() ? nullptr : &*found;
}

const running_process *process_table::user_of(std::string_view stack_name) const {
  const auto found = std::find_if(processes_.begin(), processes_.end(), [&](const running_process &p) {
    return std::find(p.stacks.begin(), p.stacks.end(), stack_name) != p.stacks.end();
  });
  return found == processes_.end() ? nullptr : &*found;
}

}  // namespace vosk
