#include "processes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <limits>

#include "collection.h"
#include "safe_file.h"

namespace vosk {

namespace {

constexpr std::size_t kSmall = 4096, kMostEnvironment = std::size_t{16} << 20;
constexpr std::int64_t kSlack = 2;  // clock ticks are rounded, and the clocks are read one after the other
constexpr std::int64_t kAlways = std::numeric_limits<std::int64_t>::min();

// What can be read of a file; nothing where it cannot be read.
std::optional<std::string> small_text(const std::string &path, std::size_t limit) {
  const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return std::nullopt;
  std::string text;
  char piece[16384];
  while (text.size() < limit) {
    const ssize_t size = ::read(fd.get(), piece, std::min(sizeof piece, limit - text.size()));
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return std::nullopt;
    if (size == 0) break;
    text.append(piece, static_cast<std::size_t>(size));
  }
  return text;
}

template <class Number>
bool parse(std::string_view text, Number &number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return !text.empty() && result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    if (end > 0) parts.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

struct process_state {
  bool over = false;  // only its parent has not taken notice yet
  std::int64_t started = kAlways;
};

// Reads what /proc/PID/stat says.
std::optional<process_state> parse_stat(std::string_view text) {
  // The command name, in parentheses, may hold anything.
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string_view::npos) return std::nullopt;
  const std::vector<std::string_view> fields = split(text.substr(name_end + 1), " \n");
  constexpr std::size_t kThreads = 17, kStart = 19;
  std::int64_t threads = 0, ticks = 0;
  if (fields.size() <= kStart || !parse(fields[kThreads], threads) || !parse(fields[kStart], ticks))
    return std::nullopt;
  timespec now{}, since_boot{};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  (void)clock_gettime(CLOCK_BOOTTIME, &since_boot);
  process_state state;
  state.over = (fields[0] == "Z" || fields[0] == "X") && threads <= 1;
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
    if (int id = 0; parse(number, id)) ids.push_back(id);
  return ids;
}

std::vector<std::string> parse_environment(std::string_view environment) {
  constexpr std::string_view kVariable = "VOSKSTACK=";
  std::vector<std::string> stacks;
  for (const std::string_view text : split(environment, std::string_view("\0", 1)))
    if (text.starts_with(kVariable)) stacks.emplace_back(text.substr(text.rfind('/') + 1));
  for (std::string &name : stacks)
    if (name.starts_with(kVariable)) name.erase(0, kVariable.size());
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
  const auto text = small_text("/proc/" + std::to_string(pid) + "/stat", kSmall);
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
    if (!parse(entry.name, process.pid)) continue;
    itself = itself || process.pid == getpid();
    first = first || process.pid == 1;
    const std::string path = "/proc/" + entry.name;
    const auto stat = small_text(path + "/stat", kSmall), status = small_text(path + "/status", kSmall);
    const auto state = parse_stat(stat.value_or(""));
    if (faccessat(proc.get(), entry.name.c_str(), F_OK, 0) != 0 || (state && state->over)) continue;
    process.started = state ? state->started : kAlways;
    process.ids = parse_ids(status.value_or(""));
    if (process.ids.empty()) process.ids = {process.pid};
    const auto environment = small_text(path + "/environ", kMostEnvironment);
    if (environment)
      process.stacks = parse_environment(*environment);
    else
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
