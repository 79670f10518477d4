// spooler BATCH-FILE DIRECTORY RESULT-FD: the worker of the demo. Writes a batch of orders, keeps a journal of it in
// DIRECTORY, and when the system refuses, records that and hands the identifier up through RESULT-FD.
#include <fcntl.h>
#include <sys/statvfs.h>

#include <cstdlib>
#include <cstring>

#include "story.h"

static constexpr int kOrders = 4000;

struct outcome {
  int err = 0;
  const char *call = "";
  int line = 0;
  int order = 0;
};

// Writes the orders until one is refused.
static outcome write_batch(const char *path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return {errno, "open", __LINE__, 0};
  outcome result;
  for (int order = 1; order <= kOrders && result.err == 0; ++order) {
    std::string text = "order " + std::to_string(order) + ": 3 crates of oranges, to be delivered before eight ";
    text.resize(63, '.');
    text += '\n';
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t n = write(fd, text.data() + done, text.size() - done);
      if (n < 0) {
        result = {errno, "write", __LINE__ - 2, order};
        break;
      }
      done += static_cast<std::size_t>(n);
    }
  }
  (void)close(fd);
  return result;
}

// The journal is what somebody who looks for the cause wants to see beside the record.
static bool write_journal(const std::string &journal, const char *path, const outcome &batch) {
  std::FILE *file = std::fopen(journal.c_str(), "we");
  if (file == nullptr) return false;
  std::fprintf(file, "batch %d of %d orders to %s\n", demo::kBatch, kOrders, path);
  std::fprintf(file, "%s of order %d: %s\n", batch.call, batch.order, std::strerror(batch.err));
  struct statvfs space {};
  if (statvfs(path, &space) == 0)
    std::fprintf(file, "file system: %llu of %llu bytes are free\n",
                 static_cast<unsigned long long>(space.f_bavail) * space.f_frsize,
                 static_cast<unsigned long long>(space.f_blocks) * space.f_frsize);
  return std::fclose(file) == 0;
}

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: spooler BATCH-FILE DIRECTORY RESULT-FD\n", stderr);
    return 2;
  }
  const char *const path = argv[1];
  const std::string directory = argv[2];
  const int result_fd = std::atoi(argv[3]);

  if (const int result = vk_init_1(VK_STACK_INHERIT); result != VK_INHERIT_SUCCESS) {
    demo::say("vk_init_1 gave %d", result);
    return 2;
  }
  demo::say("inherited the environment, VOSKPID is %s now", std::getenv("VOSKPID"));

  const outcome batch = write_batch(path);
  if (batch.err == 0) return 0;
  demo::say("%s of order %d fails: %s", batch.call, batch.order, std::strerror(batch.err));

  const std::string journal = directory + "/spooler.log";
  if (!write_journal(journal, path, batch)) return 2;
  vk_eid_t id = "";
  const int result =
      vk_push_stack_1(&id, nullptr, "spool", "orders", __FILE__, "1.0", batch.line, 0, nullptr, journal.c_str(),
                      "orders.cat", 1, 12, "cannot %s order %d of batch %d to %s: %s (errno %d)", batch.call,
                      batch.order, demo::kBatch, path, std::strerror(batch.err), batch.err);
  if (!demo::recorded(result, "vk_push_stack_1")) return 2;
  demo::say("recorded as %s", id);
  demo::remember(directory, "spooler", id);
  return write(result_fd, id, sizeof id) == static_cast<ssize_t>(sizeof id) ? 1 : 2;
}
