#include "child_signals.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <iterator>

namespace vosk {

namespace {

constexpr int kAskingForEnd[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
constexpr int kForCommand[] = {SIGUSR1, SIGUSR2, SIGCONT, SIGALRM};
constexpr int kStops[] = {SIGTSTP, SIGTTIN, SIGTTOU};
constexpr int kFromKeys[] = {SIGINT, SIGQUIT, SIGTSTP};

const struct {
  int number;
  void (*handler)(int);
} kChanged[] = {{SIGCHLD, SIG_DFL}, {SIGTSTP, SIG_DFL}, {SIGTTIN, SIG_DFL},
                {SIGTTOU, SIG_DFL}, {SIGPIPE, SIG_IGN}, {SIGXFSZ, SIG_IGN}};

void ignore_it(int /*number*/) {}

template <std::size_t N>
void add_all(sigset_t &set, const int (&numbers)[N]) {
  for (const int number : numbers) (void)sigaddset(&set, number);
}

bool is_pending(int number) {
  sigset_t pending;
  (void)sigemptyset(&pending);
  (void)sigpending(&pending);
  return sigismember(&pending, number) == 1;
}

bool was_sent_by(pid_t process, const siginfo_t &signal) {
  return signal.si_code <= 0 && signal.si_pid == process;
}

timeval as_timeval(std::chrono::milliseconds time) {
  return {time.count() / 1000, time.count() % 1000 * 1000};
}

struct sigaction plain(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  return action;
}

}  // namespace

signal_desk::signal_desk(bool pipe_ignored) {
  (void)sigemptyset(&desk_);
  add_all(desk_, kAskingForEnd);
  add_all(desk_, kForCommand);
  add_all(desk_, kStops);
  (void)sigaddset(&desk_, SIGCHLD);
  (void)sigprocmask(SIG_BLOCK, &desk_, &original_);
  // A parent that ignores SIGCHLD hands that down, and there would be no status to wait for. An output that can take no
  // more is none of the command's business.
  for (std::size_t i = 0; i < std::size(kChanged); ++i) {
    changed_[i].number = kChanged[i].number;
    const struct sigaction action = plain(kChanged[i].handler);
    (void)sigaction(kChanged[i].number, &action, &changed_[i].before);
    if (kChanged[i].number == SIGPIPE) changed_[i].before = plain(pipe_ignored ? SIG_IGN : SIG_DFL);
  }
}

void signal_desk::give_back() const {
  for (const changed &one : changed_) (void)sigaction(one.number, &one.before, nullptr);
  (void)sigprocmask(SIG_SETMASK, &original_, nullptr);
}

void signal_desk::catch_up(pid_t command) {
  sigset_t keys;
  (void)sigemptyset(&keys);
  add_all(keys, kFromKeys);
  const timespec at_once{};
  siginfo_t signal{};
  for (int number; (number = sigtimedwait(&keys, &signal, &at_once)) > 0;)
    if (!was_sent_by(command, signal)) (void)kill(command, number);
}

siginfo_t signal_desk::next() const {
  siginfo_t signal{};
  (void)sigwaitinfo(&desk_, &signal);
  return signal;
}

void signal_desk::stop_as(int number) const {
  if (is_pending(SIGCONT)) return;  // it goes on already, and a stop would take that signal away
  (void)raise(number);
  sigset_t one;
  (void)sigemptyset(&one);
  (void)sigaddset(&one, number);
  (void)sigprocmask(SIG_UNBLOCK, &one, nullptr);  // stops here, unless nobody is there to let it go on
  (void)sigprocmask(SIG_BLOCK, &desk_, nullptr);
}

void signal_desk::only_interrupt(std::chrono::milliseconds patience) const {
  const timespec at_once{};
  while (sigtimedwait(&desk_, nullptr, &at_once) > 0) {
  }
  const struct sigaction interrupt = plain(ignore_it);  // without SA_RESTART
  sigset_t ending;
  (void)sigemptyset(&ending);
  add_all(ending, kAskingForEnd);
  (void)sigaddset(&ending, SIGALRM);
  for (const int number : kAskingForEnd) (void)sigaction(number, &interrupt, nullptr);
  (void)sigaction(SIGALRM, &interrupt, nullptr);
  add_all(ending, kStops);
  (void)sigprocmask(SIG_UNBLOCK, &ending, nullptr);
  const itimerval alarms{as_timeval(kInterval), as_timeval(patience)};
  (void)setitimer(ITIMER_REAL, &alarms, nullptr);
}

bool is_passed_on(const siginfo_t &signal, pid_t child) {
  if (was_sent_by(child, signal)) return false;  // its message to its parent, not to itself
  switch (signal.si_signo) {
    case SIGHUP:
    case SIGTERM:
    case SIGUSR1:
    case SIGUSR2:
    case SIGCONT:
    case SIGALRM:  // an alarm that was set before this program was started
      return true;
    case SIGINT:
    case SIGQUIT:
    case SIGTSTP:
      return signal.si_code <= 0;  // the terminal's reach all of its foreground, so the command, too
    default:
      return false;
  }
}

void die_of(int number) {
  const rlimit none{};
  (void)setrlimit(RLIMIT_CORE, &none);
  (void)prctl(PR_SET_DUMPABLE, 0);  // a core that goes to a program is not bound by the limit
  const struct sigaction standard = plain(SIG_DFL);
  (void)sigaction(number, &standard, nullptr);
  (void)raise(number);
  sigset_t one;
  (void)sigemptyset(&one);
  (void)sigaddset(&one, number);
  (void)sigprocmask(SIG_UNBLOCK, &one, nullptr);
  _exit(128 + number);  // the first process of a container does not die of signals
}

}  // namespace vosk
