#include "peers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "qx_vosk.h"
#include "roads.h"
#include "states.h"

#ifdef QX_BENCH_LIBSYSTEMD
#include <systemd/sd-journal.h>
#endif
#ifdef QX_BENCH_SQLITE3
#include <sqlite3.h>
#endif
#ifdef QX_BENCH_UUID
#include <uuid/uuid.h>
#endif

namespace bench {
namespace {

constexpr int kBlock = kPushesAStack;
constexpr std::string_view kText =
    "bench product bench.cc 1.0 17 details x.cat 1 2 an order is late; the same fields that a record holds, as a line "
    "of "
    "text with its time and its process in front of it and about as many bytes as the record has";

subject repeated(const std::function<void()> &once, const std::function<void()> &before = {}) {
  return {.block =
              [=] {
                for (int i = 0; i < kBlock; ++i) once();
              },
          .calls = kBlock,
          .before = before};
}

void locked_append() {
  const int fd = open("/var/adm/appended", O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (lockf(fd, F_LOCK, 0) != 0 || write(fd, kText.data(), kText.size()) < 0) std::abort();
  (void)lockf(fd, F_ULOCK, 0);
  (void)close(fd);
}

#ifdef QX_BENCH_SQLITE3
constexpr char kDatabase[] = "/var/adm/incidents.db";

void execute(sqlite3 *db, const char *sql) {
  if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "qx_bench: %s: %s\n", sql, sqlite3_errmsg(db));
    std::abort();
  }
}

sqlite3 *open_database() {
  sqlite3 *db = nullptr;
  if (sqlite3_open(kDatabase, &db) != SQLITE_OK) std::abort();
  execute(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;");
  return db;
}

void insert(sqlite3 *db) {
  execute(
      db,
      "INSERT INTO incident VALUES (1795260757, 'bench', 4711, 'product', 'bench.cc', '1.0', 17, 'details', 'x.cat', "
      "1, 2, 'an order is late')");
}
#endif

}  // namespace

void measure_peers(const std::string &stack, int milliseconds, const std::function<void(const row &)> &shown) {
  const subject push = repeated(push_once, [&] { empty_stack(stack); });
  const auto measured = [&](const char *name, const subject &ours, const subject &peer, double goal) {
    shown({name, compare(ours, peer, milliseconds, counted::all_blocks), goal});
  };
#ifdef QX_BENCH_LIBSYSTEMD
  const auto send = [] {
    (void)sd_journal_send("MESSAGE=%s", "an order is late", "PRIORITY=%d", LOG_ERR, "PRODUCT=%s", "product",
                          "DETAILS=%s", "details", "CATALOGUE=%s", "x.cat", nullptr);
  };
  measured("push, beside sd_journal_send", push, repeated(send), 1.5);
  measured("log, beside sd_journal_send", repeated(log_once), repeated(send), 0);
#endif
  const auto say = [] { syslog(LOG_ERR, "%s", "an order is late: bench product bench.cc 1.0 17 details"); };
  openlog("bench", LOG_PID | LOG_NDELAY, LOG_DAEMON);
  measured("push, beside syslog() on an open connection", push, repeated(say), 0);
  closelog();
  measured("push, beside a locked append", push, repeated(locked_append, [] { (void)unlink("/var/adm/appended"); }), 0);
#ifdef QX_BENCH_SQLITE3
  sqlite3 *const kept = open_database();
  execute(kept,
          "CREATE TABLE incident (time INTEGER, process TEXT, pid INTEGER, product TEXT, file TEXT, version TEXT, line "
          "INTEGER, details TEXT, catalogue TEXT, message_set INTEGER, number INTEGER, text TEXT)");
  measured("push, beside an SQLite insert, handle kept", push, repeated([&] { insert(kept); }), 0.95);
  sqlite3_close(kept);
  measured("push, beside an SQLite insert, fresh handle", push, repeated([] {
             sqlite3 *const db = open_database();
             insert(db);
             sqlite3_close(db);
           }),
           0.055);
#endif
#ifdef QX_BENCH_UUID
  measured("identifier, beside uuid_generate_time", repeated([] {
             std::int64_t seconds;
             vk_eid_t eid;
             (void)vk_generate_eid_2(0, nullptr, nullptr, 0, 24, 3, &seconds, eid);
           }),
           repeated([] {
             uuid_t id;
             uuid_generate_time(id);
           }),
           0.11);
#endif
}

}  // namespace bench
