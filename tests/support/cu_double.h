// A double of libqx_cu that records every report. A test program built with DOUBLE has it in place of the library.
//
//   cu_double::reset();
//   EXPECT_EQ(vk_push_stack_1(...), 35);
//   EXPECT_THAT(cu_double::reports(), testing::ElementsAre("35: vosk.cat 1/6 (\"vk_push_stack\")"));
//
// Not for several threads at once.
#ifndef QX_TESTS_SUPPORT_CU_DOUBLE_H
#define QX_TESTS_SUPPORT_CU_DOUBLE_H

#include <qx_cu.h>

#include <optional>
#include <string>
#include <vector>

namespace cu_double {

struct Insert {
  char kind;         // 's' string, 'd' signed, 'u' unsigned, 'p' pointer, 'f' floating
  std::string text;  // the string's bytes, or the number in decimal (pointers in hex)
  bool null = false;
};

struct Report {
  enum Routine { kSetError, kSetNoError, kSetErrorArgs, kRelErrorArgs, kGetProcInfo } routine = kSetError;
  int id = 0;
  int zero = 0;
  std::string catalogue{};
  int set = 0;
  int number = 0;
  const char *text_pointer = nullptr;  // the default text as it was handed over ...
  std::string text{};                  // ... and its bytes
  std::vector<Insert> inserts{};       // as the default text's conversions say
  int count = 0;                       // of kSetErrorArgs and kRelErrorArgs
  int pid = 0;                         // of kGetProcInfo
  int result = 0;

  // "35: vosk.cat 1/6 ("vk_push_stack")" for kSetError; "no error", "args 2 = 0", "release 2", "process 12 = 1".
  std::string summary() const;
};

void reset();  // forgets the records and every setting below

const std::vector<Report> &all();             // every call in order
std::vector<std::string> sequence();          // the summaries of all
std::vector<std::string> reports();           // only cu_set_error_1 and cu_set_no_error_1
std::vector<Report> errors();                 // only cu_set_error_1
std::string formatted(const Report &report);  // the default text with its inserts in place

// The next cu_set_error_args_1 calls return `result` and store `count` and no array.
void fail_arguments(int result, int count);
// They return 0 and this array instead of the arguments that were passed.
void give_arguments(std::vector<cu_arg_t> arguments);
// cu_get_proc_info_1 returns 0 ...
void fail_process_info();
// ... or this name (up to 64 bytes, no terminator added where it fills them); by default that of /proc/PID/comm.
void give_process_name(std::string name);
// Arrays handed out and not released.
int arguments_outstanding();

}  // namespace cu_double

#endif
