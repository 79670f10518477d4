// The real directories of the library, without touching the machine's: a private mount namespace with a fresh tmpfs on
// /var/adm/vosk, and where wanted a private network namespace and another user.
//
// One body in a child process of its own:
//
//   TEST(Push, IsRefusedOnAFullFileSystem) {
//     sandbox::Options options;
//     options.size = "64k";
//     RUN_IN_SANDBOX(options, [] {
//       ASSERT_TRUE(sandbox::fill(0));
//       EXPECT_EQ(vk_push_stack_1(...), 40);
//     });
//   }
//
// The child's failures become the test's; what it prints is shown when it fails.
//
// A whole program: qx_add_test(... SANDBOX) brings a main() that moves the program into a sandbox (default options) and
// mounts a fresh /var/adm/vosk before each test; a test may call sandbox::fresh(options) for another one.
//
// Where namespaces are refused the tests are skipped loudly; where CI is set they fail.
#ifndef QX_TESTS_SUPPORT_SANDBOX_H
#define QX_TESTS_SUPPORT_SANDBOX_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/files.h"

namespace sandbox {

constexpr const char *kRoot = "/var/adm/vosk";
constexpr const char *kStacks = "/var/adm/vosk/stacks";
constexpr const char *kDumps = "/var/adm/vosk/dumps";
constexpr uid_t kNobody = 65534;

struct Options {
  std::string size = "16m";  // of the tmpfs on /var/adm/vosk; "0" is no limit
  std::string inodes = "0";  // how many files it takes; "0" is no limit
  bool directories = true;   // make "stacks" and "dumps" in it
  unsigned directory_mode = 0777;
  bool read_only = false;       // remounted so, after the directories are made
  uid_t user = 0;               // the user that the body runs as; needs real root
  bool network = false;         // a network namespace of its own: a loopback that is down and has no address
  std::vector<std::string> ip;  // commands of ip(8) inside it, see the namespace network below
  int timeout = 60;             // seconds
};

// Network set-ups for Options::ip (and network = true).
namespace network {
std::vector<std::string> loopback_down();                                        // 127.0.0.1 on lo, down
std::vector<std::string> loopback_up();                                          // 127.0.0.1 on lo, up
std::vector<std::string> two_loopback_addresses();                               // 127.0.0.1 and 127.0.0.2 on lo, up
std::vector<std::string> veth_down_behind_loopback(const std::string &address);  // lo up, then a veth that is down
std::vector<std::string> veth_down_then_up(const std::string &down_address, const std::string &up_address);
}  // namespace network

struct Outcome {
  enum Kind { kPassed, kFailed, kSkipped, kRefused } kind = kPassed;
  std::string text;  // what the child printed, or why it was refused
};

// Runs the body in a child inside fresh namespaces.
Outcome run(const Options &options, const std::function<void()> &body);

#define RUN_IN_SANDBOX(options, ...)                                                    \
  do {                                                                                  \
    const ::sandbox::Outcome outcome_of_sandbox = ::sandbox::run(options, __VA_ARGS__); \
    if (outcome_of_sandbox.kind == ::sandbox::Outcome::kRefused) {                      \
      CANNOT_RUN_HERE(outcome_of_sandbox.text);                                         \
    }                                                                                   \
    if (outcome_of_sandbox.kind == ::sandbox::Outcome::kSkipped) {                      \
      GTEST_SKIP() << outcome_of_sandbox.text;                                          \
    }                                                                                   \
    if (outcome_of_sandbox.kind == ::sandbox::Outcome::kFailed) {                       \
      FAIL() << "in the sandbox:\n" << outcome_of_sandbox.text;                         \
    }                                                                                   \
  } while (false)

// Runs the body in a plain child process, in whatever namespaces this one is: for bodies that drop privileges, set
// limits or get killed. The outcome is as above.
Outcome run_child(const std::function<void()> &body, int timeout = 60);

// Moves this program into a sandbox; returns why it was refused, empty on success. May start the program anew.
std::string enter(const Options &options, char **argv);

// Inside: mounts a fresh /var/adm/vosk with these options (those about user, network and time are not looked at).
// Returns what went wrong, empty on success.
std::string fresh(const Options &options = {});

// Inside: changes of the mounted file system.
bool remount(bool read_only);
// Writes a file that leaves about this many blocks of the file system free; false where the room is not there.
bool fill(unsigned long blocks_left);
bool remove_filling();

// Inside a child: gives root up for good.
bool drop_to(uid_t user);

}  // namespace sandbox

#endif
