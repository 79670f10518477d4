// The stack that VOSKSTACK names, who holds its lock, and the times of all stacks.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "coverage.h"
#include "findings.h"
#include "reader/collection.h"
#include "reader/reclamation.h"
#include "timeline.h"

namespace vosk {

namespace {

constexpr char kNewStack[] = "remove the file, or let the environment be created anew: the next recording makes one";
// A recording holds the lock for less than a millisecond.
constexpr int kLockPatience = 20, kLockPause = 50000;
// Clocks are compared by whole seconds, and files have the time of the last tick.
constexpr std::int64_t kSlack = 2000000;

// Who holds a lock on the file all the time that is looked; 0 for nobody, -1 where it cannot be told.
pid_t lock_holder(int fd) {
  struct flock lock {};
  for (int i = 0; i < kLockPatience; ++i) {
    lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fd, F_GETLK, &lock) != 0) return -1;
    if (lock.l_type == F_UNLCK) return 0;
    (void)usleep(kLockPause);
  }
  return lock.l_pid > 0 ? lock.l_pid : -1;
}

void examine_lock(findings &found, const std::string &path) {
  const opened_file file = open_regular(AT_FDCWD, path.c_str());
  if (file.result != outcome::read) return;
  const pid_t holder = lock_holder(file.fd.get());
  if (holder == 0) return;
  found.fault("lock_held",
              (holder > 0 ? "process " + std::to_string(holder) : std::string("a process of another namespace")) +
                  " holds the lock of " + path + ": recordings wait",
              "let it go on or end it" + (holder > 0 ? ": kill -CONT " + std::to_string(holder) : std::string()));
}

void examine_contents(findings &found, const stack_file &file) {
  if (!file.contents.damages.empty())
    found.fault("stack_damaged",
                file.path + " is damaged in " + std::to_string(file.contents.damages.size()) + " places",
                "vosk verify names them; vosk report shows what can be read");
  const push_outlook outlook = next_push(file.contents);
  const char *const reclaim = std::getenv("VOSKRECLAIM");
  const bool whole = reclaim != nullptr && std::strcmp(reclaim, "whole") == 0;
  if (outlook.stopped_by == obstacle::reclamation && !whole)
    found.fault("stack_full", file.path + " takes no more records: " + outlook.reason, kRemedy);
  else if (outlook.stopped_by == obstacle::header)
    found.fault("stack_header", file.path + " takes no more records: " + outlook.reason, kNewStack);
}

void examine_own_stack(findings &found, const std::string &path) {
  const std::string directory = std::string(kStackDirectory) + "/";
  if (!path.starts_with(directory) || path.find("/..") != std::string::npos)
    found.fault("stack_elsewhere", "VOSKSTACK lies outside of " + std::string(kStackDirectory) + ": " + path,
                "identifiers do not lead there: let the environment be created anew");
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) {
    if (errno != ENOENT) found.fault("stack_denied", path + ": " + error_text(errno), "look at the directories above");
    return;  // the first recording makes it
  }
  if (!S_ISREG(st.st_mode)) {
    found.fault("stack_replaced", path + " is no regular file", kNewStack);
    return;
  }
  if (faccessat(AT_FDCWD, path.c_str(), R_OK | W_OK, AT_EACCESS) != 0)
    found.fault("stack_denied", "this user cannot record in " + path + ": " + error_text(errno), "chmod 666 " + path);
  examine_lock(found, path);
  const collection read = read_names({path});
  for (const stack_file &file : read.stacks) examine_contents(found, file);
  for (const refused_file &file : read.refused)
    if (!file.failed && !file.missing) found.fault("stack_replaced", path + " is no stack: " + file.reason, kNewStack);
}

// A clock that was put back makes identifiers come again, and hides records from --since.
void examine_times(findings &found) {
  const moment present = now();
  std::size_t later = 0;
  std::string first;
  for (const stack_file &file : read_names({kStackDirectory}).stacks) {
    moment newest = file.facts.modified;
    if (const record *last = covered_by(file.contents).last) newest = std::max(newest, *made_at(*last));
    if (microseconds_between(present, newest) <= kSlack) continue;
    if (later++ == 0) first = file.path + " by " + duration_text(microseconds_between(present, newest));
  }
  if (later > 0)
    found.fault("clock_behind", std::to_string(later) + " stacks are newer than the clock; " + first,
                "set the clock: chronyc makestep, or timedatectl");
}

}  // namespace

void examine_stacks(findings &found) {
  const char *const path = std::getenv("VOSKSTACK");
  if (path != nullptr && *path != '\0') examine_own_stack(found, path);
  examine_times(found);
}

}  // namespace vosk
