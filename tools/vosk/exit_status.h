// What the exit status of a command says.
#ifndef TOOLS_VOSK_EXIT_STATUS_H
#define TOOLS_VOSK_EXIT_STATUS_H

namespace vosk {

inline constexpr int kExitFine = 0, kExitFailure = 1, kExitUsage = 2, kExitDamage = 3, kExitNotFound = 4;

// Of a program that runs a command, whose own statuses are the others.
inline constexpr int kExitNotStarted = 125, kExitNotExecutable = 126, kExitNoCommand = 127;

struct exit_status {
  bool failure = false;    // something could not be read or written
  bool not_found = false;  // nothing of what was asked for is there
  bool damage = false;     // something that was read is broken

  int value() const noexcept {
    if (failure) return kExitFailure;
    if (not_found) return kExitNotFound;
    return damage ? kExitDamage : kExitFine;
  }
};

}  // namespace vosk

#endif
