#include "whole/whole_test.h"

#include <fcntl.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace whole_test {

namespace {

// A process name of two characters and one for source file, version and product each.
constexpr std::size_t kTexts = 64;
// 192.168.1.10, encoded, and its type.
const std::string kNodeAddress = "XO.8.." + std::string(18, '.') + ".";

std::string text(Random &random, int length) {
  std::string out;
  for (int i = 0; i < length; ++i) out += static_cast<char>(between(random, ' ', '~'));
  std::replace(out.begin(), out.end(), '%', '#');
  return out;
}

}  // namespace

int between(Random &random, int lowest, int highest) {
  return std::uniform_int_distribution<int>(lowest, highest)(random);
}

std::size_t Incident::body() const {
  const std::size_t argument = with_argument ? 2 + 4 + kTexts + 1 : 0;  // its conversion stands in the message
  return std::min(kSmallestBody + message.size() + argument + detail.size(), kLargestBody);
}

Incident incident_of(std::size_t body) {
  Incident incident;
  const std::size_t text = body - kSmallestBody;
  incident.message = std::string(text / 3, 'm');
  incident.detail = std::string(text - text / 3, 'd');
  return incident;
}

Incident random_incident(Random &random) {
  Incident incident;
  const bool cut = between(random, 0, 19) == 0;
  incident.message = text(random, cut ? between(random, 600, 1200) : between(random, 0, 300));
  if (cut || between(random, 0, 2) != 0) incident.detail = text(random, between(random, 0, cut ? 1200 : 500));
  incident.with_argument = between(random, 0, 3) == 0;
  return incident;
}

Incident ordinary_incident(Random &random, int i) {
  static const char *const kMessages[] = {"cannot open the job file", "write of the spool file failed",
                                          "no answer from the print server", "the queue is full"};
  static const char *const kDetails[] = {"open: No such file or directory", "write: No space left on device",
                                         "connect: Connection refused", "enqueue: limit of 64 jobs reached"};
  Incident incident;
  const int kind = between(random, 0, 3);
  incident.message = std::string(kMessages[kind]) + " " + std::to_string(i);
  incident.detail = kDetails[kind];
  for (int lines = between(random, 0, 6); lines > 0; --lines)
    incident.detail += "\njob " + std::to_string(between(random, 1, 99999)) + " of user " + text(random, 8);
  return incident;
}

bool recorded(int code) {
  return code == 0 || (code >= 26 && code <= 37) || code == 44;
}

Pushed push(const Incident &incident) {
  vk_eid_t eid = {};
  const std::string format = incident.message + (incident.with_argument ? "%s" : "");
  const std::string argument(80, 'a');
  const int code = vk_push_stack_1(&eid, nullptr, "resource", "p", "f", "v", 7, 0,
                                   incident.detail.empty() ? nullptr : incident.detail.c_str(), nullptr, nullptr, 1, 2,
                                   format.c_str(), argument.c_str());
  return {code, std::string(eid, sizeof eid)};
}

std::string fresh_file(int size) {
  std::string file(static_cast<std::size_t>(size), '\0');
  return file.replace(0, kHeader, Header{0, 24, 24, 24, size, 0, std::string(3, '\0')}.bytes());
}

void Expected::add(std::size_t size) {
  wrapped_ = position_ + size > size_;
  cleared_ = 0;
  const std::size_t from = wrapped_ ? kHeader : position_;
  const auto in_the_way = [&](const Record &record) {
    const bool behind_the_end = wrapped_ && record.offset >= position_;
    return behind_the_end || (record.offset < from + size && record.end() > from);
  };
  for (std::size_t i = 0; i < records_.size(); ++i)
    if (in_the_way(records_[i])) cleared_ = i + 1;
  records_.erase(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(cleared_));
  records_.push_back({from, std::string(size, '\0')});
  position_ = from + size;
}

std::string places(const std::vector<Record> &records) {
  std::string out;
  for (const Record &record : records)
    out += std::to_string(record.offset) + "+" + std::to_string(record.bytes.size()) + " ";
  return out;
}

WholeTest::WholeTest() {
  environment_.set("VOSKSTACK", stack());
  set_identified(true);
  environment_.set("VOSKPNAME", "s1");
  for (const char *name : {"VOSKPID", "VOSKORIG", "VOSKRECLAIM"}) environment_.unset(name);
  for (const char *name : {"VOSKDEBUG", "VOSKSDISABLE"}) environment_.unset(name);
  own_environment();
}

void WholeTest::own_environment() {
  const std::string pid = std::to_string(getpid());
  setenv("VOSKPID", pid.c_str(), 1);
  setenv("VOSKORIG", pid.c_str(), 1);
}

std::string WholeTest::file() const {
  return files::read(stack()).value_or("");
}

void WholeTest::put(const std::string &bytes) {
  const int fd = open(stack().c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
}

void WholeTest::reclaim(const char *rule) {
  if (rule == nullptr)
    environment_.unset("VOSKRECLAIM");
  else
    environment_.set("VOSKRECLAIM", rule);
}

void WholeTest::set_identified(bool on) {
  environment_.set("VOSKADDR", on ? kNodeAddress : "no address");
}

std::string WholeTest::filled(int size, int wraps, Random &random) {
  reclaim("whole");
  put(fresh_file(size));
  Expected expected(size);
  for (int more = between(random, 0, 40); wraps > 0 || more > 0;) {
    const Incident incident = random_incident(random);
    EXPECT_TRUE(recorded(push(incident).code));
    expected.add(incident.size());
    if (expected.wrapped())
      --wraps;
    else if (wraps <= 0)
      --more;
  }
  return file();
}

std::string WholeTest::stopped(int size, Random &random) {
  reclaim(nullptr);
  put(fresh_file(size));
  for (int i = 0; i < 2000; ++i)
    if (!recorded(push(ordinary_incident(random, i)).code)) return file();
  return "";
}

}  // namespace whole_test
