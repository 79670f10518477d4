// The distribution's own System Log: a private rsyslogd takes the records, and its file is read back.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>
#include <thread>

#include "private_log.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

extern char **environ;

namespace {

// One daemon with its own configuration, process file and output.
class Rsyslogd {
 public:
  Rsyslogd() {
    files::write(directory_ / "conf",
                 "module(load=\"imuxsock\" SysSock.Name=\"/dev/log\" SysSock.RateLimit.Interval=\"0\")\n"
                 "global(workDirectory=\"" +
                     directory_.path() +
                     "\" maxMessageSize=\"8k\")\n"
                     "template(name=\"line\" type=\"string\" "
                     "string=\"%syslogfacility-text%.%syslogseverity-text% %programname% %procid%%msg%\\n\")\n"
                     "*.* action(type=\"omfile\" file=\"" +
                     directory_ / "out" + "\" template=\"line\")\n");
    const std::string conf = directory_ / "conf", pid_file = directory_ / "pid";
    const char *arguments[] = {"rsyslogd", "-n", "-f", conf.c_str(), "-i", pid_file.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string messages = directory_ / "messages";
    posix_spawn_file_actions_addopen(&actions, 1, messages.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    for (const char *program : {"/usr/sbin/rsyslogd", "/sbin/rsyslogd"})
      if (pid_ < 0 && access(program, X_OK) == 0 &&
          posix_spawn(&pid_, program, &actions, nullptr, const_cast<char **>(arguments), environ) != 0)
        pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Rsyslogd() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Rsyslogd(const Rsyslogd &) = delete;
  Rsyslogd &operator=(const Rsyslogd &) = delete;

  bool installed() const { return pid_ > 0; }
  bool listens() const {
    return eventually([] { return files::exists("/dev/log"); });
  }
  // The lines of its file, once there are so many.
  std::vector<std::string> lines(std::size_t count) const {
    std::vector<std::string> found;
    eventually([&] {
      std::istringstream text(files::read(directory_ / "out").value_or(""));
      found.clear();
      for (std::string line; std::getline(text, line);)
        if (line.find("rsyslogd") == std::string::npos) found.push_back(line);
      return found.size() >= count;
    });
    return found;
  }
  std::string messages() const { return files::read(directory_ / "messages").value_or(""); }

 private:
  template <class Condition>
  static bool eventually(Condition condition) {
    for (int i = 0; i < 1000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

  files::TemporaryDirectory directory_;
  pid_t pid_ = -1;
};

TEST(RealSystemLog, RecordsArriveInItsFileAsTheyWereMade) {
  const std::string problem = private_log::cover_dev();
  if (!problem.empty()) CANNOT_RUN_HERE(problem);
  platform::Environment environment;
  environment.unset("VOSKDEBUG");
  environment.set("VOSKADDR", ".XO.8....................");
  environment.set("VOSKPNAME", "command");
  const Rsyslogd daemon;
  if (!daemon.installed()) CANNOT_RUN_HERE("no rsyslogd (package rsyslog)");
  ASSERT_TRUE(daemon.listens()) << daemon.messages();

  const files::TemporaryDirectory directory;
  const std::string detail = directory / "details";
  ASSERT_TRUE(files::write(detail, "d"));
  struct Row {
    int type;
    std::string message, printed, name;
    bool with_file = false;
  };
  const std::string long_message(2000, 'x');
  const std::vector<Row> rows = {
      {VOSK_EMERG, "the first", "the first", "emerg"},
      {VOSK_ERROR, "100% of %s %n %1$s", "100% of %s %n %1$s", "err"},
      {VOSK_STATE, "50%% and %m", "50% and Permission denied", "notice"},
      {VOSK_PERF, "", "", "warning"},
      {VOSK_TRACE, "with a file", "with a file", "info", true},
      {VOSK_RECOV, long_message, long_message, "debug"},
      {VOSK_DEBUG, "the last", "the last", "debug"},
  };
  std::vector<std::string> expected;
  std::string reference;
  for (const Row &row : rows) {
    vk_eid_t eid;
    errno = EACCES;
    EXPECT_EQ(vk_log_error_1(&eid, reference.c_str(), "service", "product", "/src/file.c", "1.7", 321, 0, row.type,
                             0x2A, row.with_file ? nullptr : "d", 1, row.with_file ? detail.c_str() : nullptr, "%s",
                             row.message.c_str()),
              0);
    const std::vector<std::string> copies = files::list(sandbox::kDumps);
    const std::string copy = row.with_file && copies.size() == 1 ? std::string(sandbox::kDumps) + "/" + copies[0] : "";
    const std::string record = std::string("(Recorded using libqx_vosk.a cv 2):::Error ID: ") + eid +
                               ":::Reference ID: " + reference + ":::Template ID: 2a:::Details File: " + copy +
                               ":::Location: product,file.c,1.7,321" + std::string(24, ' ') + ":::" + row.printed;
    expected.push_back("daemon." + row.name + " service " + std::to_string(getpid()) + " " + record.substr(0, 992));
    reference = eid;
  }
  EXPECT_THAT(daemon.lines(expected.size()), testing::ElementsAreArray(expected)) << daemon.messages();
}

}  // namespace
