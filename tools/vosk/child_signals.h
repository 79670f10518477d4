// The signals of a program that runs a command and wants to be taken for it.
#ifndef TOOLS_VOSK_CHILD_SIGNALS_H
#define TOOLS_VOSK_CHILD_SIGNALS_H

#include <signal.h>
#include <sys/types.h>

#include <chrono>

namespace vosk {

// From its making on the signals that concern the command are blocked, to be fetched one by one: so none is lost, none
// interrupts anything, and none ends the program before its command.
class signal_desk {
 public:
  // How long anything after the command's end is waited for, and how often what still waits then is interrupted.
  static constexpr std::chrono::milliseconds kPatience{10000}, kInterval{1000};

  // `pipe_ignored`: SIGPIPE was ignored when the program was started. The rest is found out here.
  explicit signal_desk(bool pipe_ignored);

  // In the new process: mask and dispositions as this program was given them.
  void give_back() const;

  // Right after the start: tells the command, once, what the terminal sent while there was none to get it. What comes
  // between the start and this call reaches it twice: better than not at all.
  static void catch_up(pid_t command);

  // Waits for the next signal, SIGCHLD among them; number 0 where this program was stopped and goes on.
  siginfo_t next() const;

  // Stops this program as the signal `number` stopped the command. Returns when it goes on.
  void stop_as(int number) const;

  // The command has ended. From here on signals that ask for an end only interrupt waiting: what is still to be done
  // takes a moment, and what would take longer is given up. After `patience` an alarm does the same, again and again:
  // whoever holds the lock of an Error Stack must not hold the command's status back.
  void only_interrupt(std::chrono::milliseconds patience = kPatience) const;

 private:
  struct changed {
    int number;
    struct sigaction before;
  };

  sigset_t desk_, original_;
  changed changed_[6];
};

// True if the command `child` has to be told of a signal that this program was sent.
bool is_passed_on(const siginfo_t &signal, pid_t child);

// Ends this program by the signal `number`, without a core: the command has left one where that is wanted.
[[noreturn]] void die_of(int number);

}  // namespace vosk

#endif
