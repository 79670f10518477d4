// Many processes record into one stack, or write one trace file: nothing is lost, doubled or torn, and past the wrap
// the bytes are those of the pushes in the order in which they held the lock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qx_vosk.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "proof/processes.h"
#include "proof/soak.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/stack_model.h"
#include "support/trace_file.h"

namespace proof {
namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/shared";
const std::string kTraceFile = std::string(sandbox::kRoot) + "/shared-trace";

void own(const std::string &stack) {
  const std::string pid = std::to_string(getpid());
  setenv("VOSKSTACK", stack.c_str(), 1);
  setenv("VOSKORIG", "1", 1);
  setenv("VOSKPID", pid.c_str(), 1);
  setenv("VOSKADDR", "z/../....................", 1);
  setenv("VOSKPNAME", "many", 1);
  unsetenv("VOSKDEBUG");
  unsetenv("VOSKRECLAIM");
}

int push(vk_eid_t *fid, const std::string &detail) {
  return vk_push_stack_1(fid, nullptr, "many", "p", "f", "1", 1, 0, detail.c_str(), nullptr, "c", 1, 1, "m");
}

// What each push of each process was told.
struct Told {
  struct Entry {
    int code;
    vk_eid_t fid;
  };
  std::array<std::array<Entry, 64>, 32> of;
};

std::string key(int process, int number) {
  return "process " + std::to_string(process) + " push " + std::to_string(number);
}

TEST(ManyProcesses, LoseAndTearNothingInStacksThatDoNotWrap) {
  const int stacks = short_or_long(200, 2400);
  const unsigned random_seed = seed();
  std::mt19937 random(random_seed);
  int pushes = 0;
  Shared<Told> told;
  for (int s = 0; s < stacks && !testing::Test::HasFailure(); ++s) {
    SCOPED_TRACE(testing::Message() << "seed " << random_seed << ", stack " << s);
    const int processes = 2 + static_cast<int>(random() % 31), each = 96 / processes;
    // Every other stack does not exist yet.
    unlink(kStack.c_str());
    if (s % 2 == 0) {
      ASSERT_TRUE(files::write(kStack, stack_model::created(16384).bytes));
    }
    together(processes, [&](int process) {
      own(kStack);
      for (int i = 0; i < each; ++i) {
        Told::Entry &entry = told->of[static_cast<std::size_t>(process)][static_cast<std::size_t>(i)];
        entry.code = push(&entry.fid, key(process, i));
      }
    });
    pushes += processes * each;
    const std::string bytes = files::read(kStack).value_or("");
    const auto records = stack_model::records(bytes);
    ASSERT_TRUE(records);
    EXPECT_EQ(records->size(), static_cast<std::size_t>(processes * each));
    std::map<std::string, std::string> identifiers;
    for (const std::string &record : *records) {
      const auto decoded = stack_model::decode(record);
      ASSERT_TRUE(decoded);
      EXPECT_TRUE(identifiers.emplace(decoded->push.detail, decoded->push.identifier).second) << "twice";
    }
    for (int process = 0; process < processes; ++process) {
      for (int i = 0; i < each; ++i) {
        const Told::Entry &entry = told->of[static_cast<std::size_t>(process)][static_cast<std::size_t>(i)];
        EXPECT_EQ(entry.code, 0);
        EXPECT_EQ(identifiers[key(process, i)], std::string(entry.fid, sizeof entry.fid));
      }
    }
    // Behind the last record nothing was ever written.
    const auto end = static_cast<std::size_t>(stack_model::File{bytes}.header().recording);
    EXPECT_EQ(bytes.find_first_not_of('\0', end), std::string::npos);
  }
  std::printf("%d stacks, %d pushes, seed %u\n", stacks, pushes, random_seed);
}

// A push as it was made, with the number that it drew while it held the lock.
struct Ticket {
  int pid, number, code, size;
  vk_eid_t fid;
  std::uint32_t seconds;
};
struct Tickets {
  std::atomic<int> next{0};
  std::array<Ticket, 32 * 64> drawn;
};

TEST(ManyProcesses, LeavePastTheWrapWhatTheirPushesLeaveOneAfterTheOther) {
  const int stacks = short_or_long(40, 1000);
  const unsigned random_seed = seed() + 1;
  std::mt19937 random(random_seed);
  int refused = 0, wrapped = 0;
  Shared<Tickets> tickets;
  for (int s = 0; s < stacks && !testing::Test::HasFailure(); ++s) {
    SCOPED_TRACE(testing::Message() << "seed " << random_seed << ", stack " << s);
    const int processes = 2 + static_cast<int>(random() % 15), each = 320 / processes > 60 ? 60 : 320 / processes;
    const unsigned sizes = static_cast<unsigned>(random());
    unlink(kStack.c_str());
    ASSERT_TRUE(files::write(kStack, stack_model::created(16384).bytes));
    tickets->next = 0;
    together(processes, [&](int process) {
      own(kStack);
      std::mt19937 own_random(sizes + static_cast<unsigned>(process));
      for (int i = 0; i < each; ++i) {
        Ticket ticket = {};
        ticket.pid = getpid();
        ticket.size = static_cast<int>(own_random() % 300);
        ticket.number = -1;
        platform::Calls calls;
        calls.after("lockf", 1, [&](const platform::Call &) { ticket.number = tickets->next.fetch_add(1); });
        ticket.code =
            calls.during([&] { return push(&ticket.fid, std::string(static_cast<std::size_t>(ticket.size), 'd')); });
        ticket.seconds = static_cast<std::uint32_t>(vk_a64l(std::string(ticket.fid, 43).substr(7, 6).c_str()));
        if (ticket.number >= 0) tickets->drawn[static_cast<std::size_t>(ticket.number)] = ticket;
      }
    });
    const int drawn = tickets->next;
    ASSERT_EQ(drawn, processes * each) << "pushes that never held the lock";
    stack_model::File model = stack_model::created(16384);
    for (int i = 0; i < drawn; ++i) {
      const Ticket &ticket = tickets->drawn[static_cast<std::size_t>(i)];
      stack_model::Push made;
      made.identifier.assign(ticket.fid, sizeof ticket.fid);
      made.seconds = ticket.seconds;
      made.process_name = "many";
      made.pid = ticket.pid;
      made.parent = getpid();
      made.thread = static_cast<std::int32_t>(pthread_self());
      made.file = "f";
      made.version = "1";
      made.product = "p";
      made.line = made.set = made.number = 1;
      made.catalogue = "c";
      made.message = "m";
      made.detail = std::string(static_cast<std::size_t>(ticket.size), 'd');
      const stack_model::Outcome outcome = stack_model::push(model, stack_model::build(made));
      const int expected = outcome.code != 0 ? outcome.code : ticket.size == 0 ? VK_NO_DETAILS : 0;
      EXPECT_EQ(ticket.code, expected) << "push " << i;
      refused += outcome.code != 0 ? 1 : 0;
      wrapped += outcome.wrapped ? 1 : 0;
    }
    EXPECT_EQ(stack_model::difference(model, kStack), "");
  }
  EXPECT_GT(wrapped, stacks / 2);
  std::printf("%d stacks, %d wraps, %d refusals, seed %u\n", stacks, wrapped, refused, random_seed);
}

TEST(ManyProcesses, KeepEveryEntryOfATraceFileWholeThroughAHundredRecyclings) {
  constexpr int kWriters = 16;
  const int each = short_or_long(900, 20000);
  unlink(kTraceFile.c_str());
  ASSERT_EQ(vk_create_debug_file(kTraceFile.c_str()), 0);
  together(kWriters, [&](int writer) {
    for (int i = 0; i < each; ++i) {
      const std::string text(static_cast<std::size_t>((writer * 31 + i * 7) % 200), static_cast<char>('a' + writer));
      if (vk_debug(kTraceFile.c_str(), "writer", "%d %d %s\n", writer, i, text.c_str()) != 0) _exit(1);
    }
  });
  const trace_file::Trace trace = trace_file::read(kTraceFile);
  EXPECT_EQ(trace.problem, "");
  EXPECT_GE(trace.wraps, 100);
  EXPECT_GT(trace.entries.size(), 20u);
  std::set<std::pair<int, int>> seen;
  for (const trace_file::Entry &entry : trace.entries) {
    int writer = -1, i = -1;
    ASSERT_EQ(std::sscanf(entry.message().c_str(), "%d %d", &writer, &i), 2) << entry.text;
    EXPECT_TRUE(seen.emplace(writer, i).second) << "twice";
    const std::string text(static_cast<std::size_t>((writer * 31 + i * 7) % 200), static_cast<char>('a' + writer));
    EXPECT_EQ(entry.lines, trace_file::folded("%d %d %s\n", writer, i, text.c_str()));
  }
}

}  // namespace
}  // namespace proof
