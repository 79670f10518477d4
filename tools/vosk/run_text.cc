#include "run_text.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "reader/collection.h"
#include "reader/escape.h"

namespace vosk {

namespace {

// A record holds 1024 bytes, and the description is not all of it.
constexpr std::size_t kCommandInSummary = 160;

constexpr std::string_view kPlainCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";

std::string quoted(const std::string &argument) {
  if (!argument.empty() && argument.find_first_not_of(kPlainCharacters) == std::string::npos) return argument;
  std::string text = "'";
  for (const char c : argument) {
    if (c == '\'')
      text += "'\\''";
    else
      text += c;
  }
  return text + "'";
}

std::int64_t microseconds(const timeval &time) {
  return time.tv_sec * std::int64_t{1000000} + time.tv_usec;
}

std::string signal_text(int number) {
  const char *const name = sigabbrev_np(number);
  return std::to_string(number) + (name != nullptr ? " (SIG" + std::string(name) + ")" : std::string());
}

bool was_killed(const child_end &end) {
  return end.start_error == 0 && WIFSIGNALED(end.status);
}

std::string directory_text() {
  std::error_code unknown;
  const auto directory = std::filesystem::current_path(unknown);
  return unknown ? "?" : escaped(directory.string());
}

std::string local_time(moment at) {
  return time_text(at.seconds, static_cast<std::uint32_t>(at.microseconds), zone::local);
}

}  // namespace

std::string command_text(const std::vector<std::string> &command) {
  std::string text;
  for (const std::string &argument : command) text += (text.empty() ? "" : " ") + quoted(argument);
  return escaped(text);
}

std::string cut_text(std::string_view text, std::size_t limit) {
  constexpr std::string_view kCut = "...";
  if (text.size() <= limit) return std::string(text);
  std::size_t length = limit - kCut.size();
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;  // whole characters
  return std::string(text.substr(0, length)) + std::string(kCut);
}

std::string end_text(const child_end &end) {
  if (end.start_error != 0) return "cannot be started: " + error_text(end.start_error);
  if (WIFEXITED(end.status)) return "exit status " + std::to_string(WEXITSTATUS(end.status));
  return "killed by signal " + signal_text(WTERMSIG(end.status)) + (WCOREDUMP(end.status) ? ", core dumped" : "");
}

std::string run_summary(const std::vector<std::string> &command, const child_end &end) {
  std::string text = cut_text(command_text(command), kCommandInSummary) + ": " + end_text(end);
  if (end.start_error != 0) return text;
  return text + " after " + duration_text(end.microseconds) + " (" + duration_text(microseconds(end.use.ru_utime)) +
         " user, " + duration_text(microseconds(end.use.ru_stime)) + " system, " + std::to_string(end.use.ru_maxrss) +
         " KiB)";
}

std::string run_detail(const std::vector<std::string> &command, const child_end &end, std::size_t limit) {
  const rusage &use = end.use;
  const auto count = [](long n, const char *what) { return std::to_string(n) + what; };
  std::string text = "command: " + cut_text(command_text(command), limit) +  //
                     "\ndirectory: " + cut_text(directory_text(), limit) +   //
                     "\nresult: " + end_text(end) +                          //
                     "\nstarted: " + local_time(end.started) +               //
                     "\nended: " + local_time(end.ended) +                   //
                     "\nelapsed: " + duration_text(end.microseconds);
  if (end.start_error == 0)
    text += "\ncpu: " + duration_text(microseconds(use.ru_utime)) + " user, " +                    //
            duration_text(microseconds(use.ru_stime)) + " system" +                                //
            "\nmemory: " + count(use.ru_maxrss, " KiB at most") +                                  //
            "\nfaults: " + count(use.ru_minflt, " minor, ") + count(use.ru_majflt, " major") +     //
            "\nblocks: " + count(use.ru_inblock, " read, ") + count(use.ru_oublock, " written") +  //
            "\nswitches: " + count(use.ru_nvcsw, " voluntary, ") + count(use.ru_nivcsw, " involuntary");
  return text + "\n";
}

std::string tail_heading(const stderr_tail::excerpt &tail) {
  if (tail.total == 0) return "standard error: nothing\n";
  if (tail.total == tail.bytes.size()) return "standard error, " + std::to_string(tail.total) + " bytes:\n";
  return "standard error, the last " + std::to_string(tail.bytes.size()) + " of " + std::to_string(tail.total) +
         " bytes:\n";
}

bool can_keep_files() {
  return access(kDumpDirectory, W_OK | X_OK) == 0;
}

void run_members(json_object &object, const std::vector<std::string> &command, const child_end &end) {
  object.array("command", command,
               [](const std::string &argument, std::string &out) { append_json_text(out, argument); });
  object.number("exit_status", end.exit_status());
  if (was_killed(end))
    object.number("signal", WTERMSIG(end.status)).boolean("core", WCOREDUMP(end.status));
  else
    object.null("signal");
  if (end.start_error != 0) object.text("start_error", error_text(end.start_error));
  object.text("started", utc_time_text(end.started.seconds, static_cast<std::uint32_t>(end.started.microseconds)));
  object.text("ended", utc_time_text(end.ended.seconds, static_cast<std::uint32_t>(end.ended.microseconds)));
  object.number("microseconds", end.microseconds);
  object.number("user_microseconds", microseconds(end.use.ru_utime));
  object.number("system_microseconds", microseconds(end.use.ru_stime));
  object.number("max_resident_kib", end.use.ru_maxrss);
}

}  // namespace vosk
