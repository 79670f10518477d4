// What arrives at /dev/log: exact bytes, and that nothing in a record is ever read as a conversion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_cu.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

#include "dev/run_shell.h"
#include "private_log.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using private_log::Listener;

class Datagrams : public testing::Test {
 protected:
  void SetUp() override {
    const std::string problem = private_log::cover_dev();
    if (!problem.empty()) CANNOT_RUN_HERE(problem);
    environment_.unset("VOSKDEBUG");
    environment_.set("VOSKADDR", ".XO.8....................");
    environment_.set("VOSKPNAME", "command");
  }
  platform::Environment environment_;
};

// The text behind "<priority>Nov 14 22:13:20 identity[pid]: "; empty where that is not what it looks like.
std::string message_of(const std::string &datagram, int priority, const std::string &identity) {
  const std::string head = "<" + std::to_string(priority) + ">";
  const std::string tail = identity + "[" + std::to_string(getpid()) + "]: ";
  if (datagram.compare(0, head.size(), head) != 0) return "";
  const std::string time = datagram.substr(head.size(), 16);
  if (vk::test::first_group(time, "^([A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} )$").empty()) return "";
  if (datagram.compare(head.size() + 16, tail.size(), tail) != 0) return "";
  return datagram.substr(head.size() + 16 + tail.size());
}

TEST_F(Datagrams, OneRecordIsOneDatagram) {
  Listener listener;
  vk_eid_t eid;
  EXPECT_EQ(vk_log_error_1(&eid, "reference", "service", "product", "/src/file.c", "1.7", 321, 0, VOSK_ERROR, 0xABC,
                           "d", 1, nullptr, "cannot open %s", "it"),
            0);
  const std::optional<std::string> datagram = listener.next();
  ASSERT_TRUE(datagram.has_value());
  EXPECT_EQ(message_of(*datagram, 24 + 3, "service"),
            std::string("(Recorded using libqx_vosk.a cv 2):::Error ID: ") + eid +
                ":::Reference ID: reference:::Template ID: abc:::Details File: :::Location: product,file.c,1.7,321" +
                std::string(24, ' ') + ":::cannot open it");
  EXPECT_FALSE(listener.next().has_value());
}

TEST_F(Datagrams, FacilityIsDaemonAndThePriorityThatOfTheType) {
  Listener listener;
  const int priorities[] = {24, 27, 29, 28, 30, 31, 31, 31};
  for (int type = 0; type <= 7; ++type) {
    vk_log_error_1(nullptr, "", "service", "p", "f", "v", 1, 0, type, 0, "d", 1, nullptr, "message");
    EXPECT_THAT(listener.next().value_or(""), testing::StartsWith("<" + std::to_string(priorities[type]) + ">"));
  }
}

TEST_F(Datagrams, RecordWithoutAResourceHasTheProgramsName) {
  Listener listener;
  EXPECT_EQ(vk_log_error_1(nullptr, "", nullptr, "p", "f", "v", 1, 0, VOSK_ERROR, 0, "d", 1, nullptr, "message"), 27);
  EXPECT_THAT(listener.next().value_or(""), testing::HasSubstr(" datagrams_test[" + std::to_string(getpid()) + "]: "));
}

TEST_F(Datagrams, WithoutAListenerTheResultIsTheSame) {
  unlink("/dev/log");
  EXPECT_EQ(vk_log_error_1(nullptr, "", "service", "p", "f", "v", 1, 0, VOSK_ERROR, 0, "d", 1, nullptr, "message"), 27);
}

TEST_F(Datagrams, NoConnectionIsLeftOpen) {
  Listener listener;
  const auto before = files::descriptors();
  vk_log_error_1(nullptr, "", "service", "p", "f", "v", 1, 0, VOSK_ERROR, 0, "d", 1, nullptr, "message");
  EXPECT_EQ(files::descriptors(), before);
}

TEST_F(Datagrams, ErrnoOfTheEntryIsWhatTheRecordPrints) {
  Listener listener;
  errno = EXDEV;
  vk_log_error_1(nullptr, "", "service", "p", "f", "v", 1, 0, VOSK_ERROR, 0, nullptr, 0, "/no/such/file", "%s", "%m");
  EXPECT_THAT(listener.next().value_or(""), testing::EndsWith(std::string(":::") + std::strerror(EXDEV)));
}

// --- 100,000 records of signs that formats are made of ---

class Random {
 public:
  int below(int bound) { return static_cast<int>(generator_() % static_cast<unsigned>(bound)); }
  std::string text(int longest) {
    static constexpr char kCharacters[] = "%%%%%%%%nnssdd$$**0123456789mmlhL.-+ #'cxXpaAfgGeEiouSCjztq";
    std::string out(static_cast<std::size_t>(below(longest + 1)), ' ');
    for (char &c : out) c = kCharacters[below(sizeof kCharacters - 1)];
    return out;
  }
  std::string text_of(std::size_t length) {
    std::string out;
    while (out.size() < length) out += text(static_cast<int>(length));
    return out.substr(0, length);
  }

 private:
  std::mt19937 generator_{20231114};
};

// What syslog prints for a record: pairs of signs are one sign, "%m" is the error, everything else stands for itself.
std::string printed(std::string record, const std::string &error) {
  record.resize(std::min<std::size_t>(record.size(), 992));
  std::string out;
  for (std::size_t from = 0;;) {
    const std::size_t sign = record.find('%', from);
    out += record.substr(from, sign - from);
    if (sign == std::string::npos) return out;
    const std::string unit = record.substr(sign, 2);
    out += unit == "%m" ? error : "%";
    from = sign + (unit == "%m" || unit == "%%" ? 2 : 1);
  }
}

std::string location(const std::string &product, const std::string &file, const std::string &version, int line) {
  std::string text = (product.empty() ? "qrn_product" : product) + "," + (file.empty() ? "unknown_file" : file) + "," +
                     (version.empty() ? "no_version_num" : version) + "," + std::to_string(line);
  if (text.size() > 45) text = text.substr(0, 45) + ">";
  return text + std::string(46 - text.size(), ' ');
}

TEST_F(Datagrams, NothingIsLostOrReadAsAConversionAmong100000Records) {
  constexpr int kRecords = 100000;
  Listener listener;
  Random random;
  static constexpr int kErrors[] = {0, EPERM, ENOENT, EACCES, ENOSPC, ERANGE};
  const files::TemporaryDirectory directory;
  int lost = 0, different = 0, cut = 0, doubled = 0, cited = 0;
  for (int i = 0; i < kRecords; ++i) {
    const std::string address = random.text_of(25), reference = random.text(i % 7 == 0 ? 1000 : 42);
    const std::string resource = random.text(30), product = random.text(20), file = random.text(20);
    const std::string version = random.text(10), text = random.text(i % 5 == 0 ? 1200 : 200);
    const std::uint32_t templ = static_cast<std::uint32_t>(random.below(0x7FFFFFFF));
    const int line = 1 + random.below(10000), error = kErrors[random.below(6)];
    environment_.set("VOSKADDR", address);
    // Now and then a detail file, whose copy has the signs in its name as well.
    std::string copy, detail;
    if (i % 1000 == 0) {
      const std::string name = "%" + random.text(40);
      environment_.set("VOSKPNAME", name);
      detail = directory / "details";
      ASSERT_TRUE(files::write(detail, "d"));
    }
    vk_eid_t eid;
    std::memset(eid, 0, sizeof eid);
    errno = error;
    const int result =
        vk_log_error_1(&eid, reference.c_str(), resource.c_str(), product.c_str(), file.c_str(), version.c_str(), line,
                       0, VOSK_ERROR, templ, detail.empty() ? "d" : nullptr, 1, detail.c_str(), "%s", text.c_str());
    if (!detail.empty()) {
      ASSERT_NE(result, 32);
      const std::vector<std::string> copies = files::list(sandbox::kDumps);
      ASSERT_EQ(copies.size(), 1U);
      copy = std::string(sandbox::kDumps) + "/" + copies[0];
      ASSERT_EQ(unlink(copy.c_str()), 0);
      ++cited;
    }
    ASSERT_EQ(std::strlen(eid), 42U);
    ASSERT_EQ(std::string(eid).substr(17), address);

    char digits[16];
    std::snprintf(digits, sizeof digits, "%x", templ);
    std::string record = "(Recorded using libqx_vosk.a cv 2):::Error ID: " + std::string(eid) + ":::Reference ID: ";
    record += reference + ":::Template ID: " + digits + ":::Details File: " + copy + ":::Location: ";
    record += location(product, file, version, line) + ":::" + text;
    cut += record.size() > 992;
    const std::string expected = printed(record, std::strerror(error));
    doubled += expected != record.substr(0, 992);

    const std::optional<std::string> datagram = listener.next();
    if (!datagram.has_value()) {
      ++lost;
      continue;
    }
    const std::string got = message_of(*datagram, 27, resource);
    if (got != expected && ++different <= 3) ADD_FAILURE() << "record " << i << "\n" << expected << "\n" << *datagram;
  }
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(different, 0);
  EXPECT_FALSE(listener.next().has_value()) << "more datagrams than records";
  EXPECT_GT(cut, kRecords / 20);
  EXPECT_GT(doubled, kRecords / 2);
  EXPECT_EQ(cited, kRecords / 1000);
}

}  // namespace
