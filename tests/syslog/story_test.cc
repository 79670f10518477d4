// The whole story: three generations of processes and a command record to both roads, each citing what came before,
// with the trace on from start to end. Every identifier leads back to its record.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "dev/run_shell.h"
#include "private_log.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/stack_model.h"
#include "support/trace_file.h"

namespace {

constexpr int kRounds = 12;

struct Told {
  std::string who, road;
  int pid = 0, type = 0;
  long long before = 0, after = 0;
  std::string eid, cited;
};

struct Story {
  vk::test::shell_result run;
  std::string stack;
  std::vector<Told> told;
  std::vector<std::string> shown;  // the displayed lines
  std::set<std::string> routines;
  std::vector<std::string> problems;
  std::vector<std::string> datagrams;
};

// Runs the processes while the System Log is listened to.
Story live(const std::string &trace_path) {
  Story story;
  private_log::Listener listener;
  std::atomic<bool> ended = false;
  std::thread reader([&] {
    for (;;) {
      const bool last = ended;
      while (const std::optional<std::string> datagram = listener.next(last ? 0 : 20))
        story.datagrams.push_back(*datagram);
      if (last) return;
    }
  });
  story.run = vk::test::run_shell("/", "VOSKDEBUG=" + trace_path + " " QX_STORY " parent " + std::to_string(kRounds));
  ended = true;
  reader.join();

  std::istringstream output(story.run.output);
  for (std::string line; std::getline(output, line);) {
    std::istringstream words(line);
    std::string first;
    words >> first;
    if (first == "stack") {
      words >> story.stack;
    } else if (first == "identifier") {
      Told told;
      words >> told.who >> told.road >> told.pid >> told.type >> told.before >> told.after;
      std::getline(words.ignore(), told.eid, ' ');
      std::getline(words, told.cited);
      if (told.cited == "-") told.cited = "";
      story.told.push_back(told);
    } else if (first == "routine") {
      words >> first;
      story.routines.insert(first);
    } else if (first == "2615-000") {
      story.shown.push_back(line);
    } else {
      story.problems.push_back(line);
    }
  }
  return story;
}

std::vector<Told> of_road(const Story &story, const std::string &road) {
  std::vector<Told> out;
  std::copy_if(story.told.begin(), story.told.end(), std::back_inserter(out),
               [&](const Told &told) { return told.road == road; });
  return out;
}

void expect_order(const Story &story) {
  ASSERT_EQ(story.told.size(), static_cast<std::size_t>(kRounds) * 7);
  const char *const order[] = {"parent stack",     "parent log",     "child stack",  "child log",
                               "grandchild stack", "grandchild log", "command stack"};
  for (std::size_t i = 0; i < story.told.size(); ++i) {
    const Told &told = story.told[i];
    SCOPED_TRACE("identifier " + std::to_string(i));
    EXPECT_EQ(told.who + " " + told.road, order[i % 7]);
    // Each cites the one before it; the parent cites its own last one, and the command the same as the child.
    const std::size_t back = i % 7 == 0 ? 6 : i % 7 == 6 ? 5 : 1;
    EXPECT_EQ(told.cited, i == 0 ? "" : story.told[i - back].eid);
  }
}

// Every identifier says where, when and on which node.
void expect_decoded(const Story &story) {
  const std::map<int, unsigned> priorities = {{VOSK_ERROR, 3}, {VOSK_STATE, 5}, {VOSK_PERF, 4}};
  for (const Told &told : story.told) {
    SCOPED_TRACE(told.who + " " + told.road + " " + told.eid);
    unsigned on_node = 9, version = 9, location = 9, templ = 9, facility = 9, priority = 9, ipv6 = 9;
    timeval time = {};
    char name[256] = "";
    unsigned char address[16] = {};
    ASSERT_EQ(vk_decode_eid_2(0, nullptr, told.eid.c_str(), &on_node, &version, &location, name, 1, &templ, &facility,
                              &priority, &time, address, &ipv6),
              0);
    EXPECT_EQ(on_node, 1U);
    EXPECT_EQ(version, 2U);
    EXPECT_EQ(ipv6, 0U);
    char text[INET_ADDRSTRLEN] = "";
    EXPECT_STREQ(inet_ntop(AF_INET, address, text, sizeof text), "10.1.2.3");
    EXPECT_GE(time.tv_sec, told.before);
    EXPECT_LE(time.tv_sec, told.after);
    EXPECT_GE(time.tv_usec, 0);
    EXPECT_LT(time.tv_usec, 1000000);
    if (told.road == "stack") {
      EXPECT_EQ(location, unsigned{VK_LOCATION_STACK});
      EXPECT_EQ(std::string(sandbox::kStacks) + "/" + name, story.stack);
    } else {
      EXPECT_EQ(location, unsigned{VK_LOCATION_SYSLOG});
      EXPECT_EQ(facility, 24U);
      EXPECT_EQ(priority, priorities.at(told.type));
    }
  }
}

// The stack holds the records of its road in order, each with its identifier and the one that it cites.
void expect_records(const Story &story) {
  const auto records = stack_model::records(files::read(story.stack).value_or(""));
  ASSERT_TRUE(records.has_value());
  const std::vector<Told> told = of_road(story, "stack");
  ASSERT_EQ(records->size(), told.size());
  const std::string parent = std::to_string(told.at(0).pid);
  for (std::size_t i = 0; i < told.size(); ++i) {
    const auto record = stack_model::decode((*records)[i]);
    ASSERT_TRUE(record.has_value()) << i;
    const auto text = [](const std::string &bytes) { return std::string(bytes.c_str()); };
    EXPECT_EQ(text(record->push.identifier), told[i].eid);
    EXPECT_EQ(text(record->push.associated), told[i].cited);
    // The command records as its parent.
    EXPECT_EQ(std::to_string(record->push.pid), told[i].who == "command" ? parent : std::to_string(told[i].pid));
    EXPECT_EQ(record->push.message, "%1$s of %2$d");
    ASSERT_EQ(record->push.arguments.size(), 2U);
    EXPECT_EQ(record->push.arguments[0].text, told[i].who);
    EXPECT_EQ(record->push.detail, "details");
  }
}

void expect_datagrams(const Story &story) {
  const std::map<int, std::string> heads = {{VOSK_ERROR, "<27>"}, {VOSK_STATE, "<29>"}, {VOSK_PERF, "<28>"}};
  const std::vector<Told> told = of_road(story, "log");
  ASSERT_EQ(story.datagrams.size(), told.size());
  for (std::size_t i = 0; i < told.size(); ++i) {
    EXPECT_THAT(story.datagrams[i], testing::StartsWith(heads.at(told[i].type)));
    EXPECT_THAT(story.datagrams[i],
                testing::EndsWith(" " + told[i].who + "[" + std::to_string(told[i].pid) +
                                  "]: (Recorded using libqx_vosk.a cv 2):::Error ID: " + told[i].eid +
                                  ":::Reference ID: " + told[i].cited +
                                  ":::Template ID: 0:::Details File: :::Location: story,story.cc,1.0,1" +
                                  std::string(26, ' ') + ":::" + told[i].who + " tells"));
  }
}

void expect_trace(const Story &story, const std::string &path) {
  const trace_file::Trace trace = trace_file::read(path);
  EXPECT_EQ(trace.problem, "");
  EXPECT_GT(trace.wraps, 20) << "the file was to be written over again and again";
  EXPECT_EQ(trace.size, 16384);
  EXPECT_THAT(
      story.routines,
      testing::UnorderedElementsAre(
          "vk_init_main", "vk_create_env", "vk_inherit_env", "vk_set_env_values", "vk_test_stack", "vk_push_stack",
          "vk_get_env_info", "vk_allocate_file", "vk_determine_max_fsize", "vk_get_stack_ctrl_info", "vk_clear_records",
          "vk_log_error", "vk_determine_bsd_priority", "vk_generate_eid", "vk_decode_eid", "vk_display_fid",
          "vk_display_fid_1", "vk_obtain_ipaddrs", "vk_get_ipaddr", "vk_conv_ipaddr", "vk_test_ipaddr",
          "vk_get_base_64_time", "vk_get_base_64_hdr", "vk_get_base_64_inode", "vk_get_base_64_selector",
          "vk_conv_base_64_time", "vk_conv_base_64_hdr", "vk_conv_base_64_inode", "vk_conv_base_64_selector"));
}

TEST(Story, EveryIdentifierLeadsBackToItsRecord) {
  sandbox::Options options;
  options.network = true;
  options.ip = sandbox::network::veth_down_behind_loopback("10.1.2.3");
  options.timeout = 110;
  RUN_IN_SANDBOX(options, [] {
    const std::string problem = private_log::cover_dev();
    if (!problem.empty()) CANNOT_RUN_HERE(problem);
    platform::Environment environment;
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG",
                             "VOSKRECLAIM", "NLSPATH"})
      environment.unset(name);
    const files::TemporaryDirectory directory;
    const std::string trace_path = directory / "trace";
    const Story story = live(trace_path);
    ASSERT_EQ(story.run.status, 0) << story.run.output;
    EXPECT_THAT(story.problems, testing::IsEmpty());
    EXPECT_THAT(files::list(sandbox::kStacks), testing::SizeIs(1));

    std::set<std::string> different;
    std::vector<std::string> shown;
    for (const Told &told : story.told) {
      different.insert(told.eid);
      shown.push_back("2615-000 " + told.eid);
    }
    EXPECT_EQ(different.size(), story.told.size());
    EXPECT_EQ(story.shown, shown);
    expect_order(story);
    expect_decoded(story);
    expect_records(story);
    expect_datagrams(story);
    expect_trace(story, trace_path);
  });
}

}  // namespace
