// The library against the model: the same pushes must leave the same bytes, the same code and the same report.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <cstring>
#include <random>

#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/stack_model.h"

namespace {

constexpr unsigned kSeed = 20240229;
const std::string kStack = std::string(sandbox::kStacks) + "/model";

class ModelAndLibrary : public testing::Test {
 protected:
  void SetUp() override {
    cu_double::reset();
    environment_.unset("VOSKDEBUG");
    environment_.unset("VOSKRECLAIM");
    environment_.set("VOSKSTACK", kStack);
    environment_.set("VOSKORIG", std::to_string(getpid()));
    environment_.set("VOSKPID", std::to_string(getpid()));
    environment_.set("VOSKADDR", "z/../....................");
    environment_.set("VOSKPNAME", "model");
  }

  std::string text(std::size_t longest) {
    std::uniform_int_distribution<std::size_t> length(0, longest);
    return std::string(length(random_), static_cast<char>('a' + random_() % 26));
  }

  // Pushes the same incident into the library's file and into the model and compares everything.
  void push_once(stack_model::File &model) {
    stack_model::Push push;
    push.file = text(30);
    push.version = text(10);
    push.product = text(10);
    push.line = static_cast<std::int32_t>(random_() % 2000) - 500;
    push.catalogue = text(12);
    push.set = static_cast<std::int32_t>(random_() % 4) - 1;
    push.number = static_cast<std::int32_t>(random_() % 4) - 1;
    push.detail = text(random_() % 8 == 0 ? 1200 : 150);
    std::string word = text(100);
    int number = static_cast<int>(random_());
    push.message = "%s and %d";
    push.arguments = {{CU_ARG_STRING, word, 0},
                      {CU_ARG_INT, "", static_cast<std::uint64_t>(static_cast<std::int64_t>(number))}};
    push.associated = random_() % 2 == 0 ? "" : std::string(43, 'A');
    push.process_name = "model";
    push.pid = getpid();
    push.thread = static_cast<std::int32_t>(pthread_self());

    std::int64_t seconds = 1000000000 + static_cast<std::int64_t>(random_() % 1000000);
    platform::Calls calls;
    calls.fixed_clock(seconds, 5);
    push.seconds = static_cast<std::uint32_t>(seconds);
    vk_eid_t fid;
    std::memset(fid, 0, sizeof fid);
    int code = calls.during([&] {
      return vk_push_stack_1(&fid, push.associated.empty() ? nullptr : push.associated.c_str(), "resource",
                             push.product.c_str(), push.file.c_str(), push.version.c_str(), push.line, 0,
                             push.detail.c_str(), nullptr, push.catalogue.c_str(), push.set, push.number,
                             push.message.c_str(), word.c_str(), number);
    });
    // A refused push returns no identifier, but made one: it is that of the record that would have been written. Its
    // bytes do not matter then.
    push.identifier.assign(fid, sizeof fid);
    stack_model::Record record = stack_model::build(push);
    stack_model::Outcome expected = stack_model::push(model, record);
    EXPECT_EQ(calls.left_open().size(), 0u);
    std::vector<cu_double::Report> errors = cu_double::errors();
    if (expected.code != 0) {
      EXPECT_EQ(code, expected.code);
      ASSERT_EQ(errors.size(), 1u);
      EXPECT_EQ(errors[0].number, expected.message);
      EXPECT_EQ(errors[0].inserts.at(0).text, kStack);
      EXPECT_EQ(errors[0].inserts.at(1).text,
                expected.message == 41 ? expected.routine : std::to_string(expected.position));
    } else {
      bool truncated = false;
      for (const cu_double::Report &report : errors) truncated = truncated || report.id == VK_RECORD_TRUNCATED;
      EXPECT_EQ(truncated, record.over_length);
    }
    EXPECT_EQ(stack_model::difference(model, kStack), "");
    outcomes_[expected.code] += 1;
    wraps_ += expected.wrapped && expected.code == 0 ? 1 : 0;
    cu_double::reset();
  }

  std::mt19937 random_{kSeed};
  platform::Environment environment_;
  std::map<int, int> outcomes_;
  int wraps_ = 0;
};

TEST_F(ModelAndLibrary, AgreeFromCreationThroughWraps) {
  for (int stack = 0; stack < 40; ++stack) {
    unlink(kStack.c_str());
    stack_model::File model = stack_model::created(16384);
    for (int i = 0; i < 60 && !HasFailure(); ++i) {
      SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", stack " << stack << ", push " << i);
      push_once(model);
    }
  }
  // The run is worth something only if it met the roads that matter.
  EXPECT_GT(wraps_, 20);
  EXPECT_GT(outcomes_[24], 20);
  EXPECT_GT(outcomes_[0], 1000);
}

TEST_F(ModelAndLibrary, AgreeOnHostileHeadersAndLengths) {
  const std::int32_t positions[] = {-1,   0,    23,   24,    25,    100,   7000,       8180,
                                    8192, 8193, 9000, 16380, 16384, 16385, 0x7fffffff, -0x7fffffff};
  const std::uint32_t versions[] = {0, 0, 0, 0, 8, 16, 56, 3, 64, 0xffffffff};
  const std::uint32_t lengths[] = {0, 1, 4, 100, 200, 1016, 5000, 16384, 0x7fffffff, 0x80000000, 0xffffffff};
  auto one_of = [this](const auto &list) { return list[random_() % std::size(list)]; };
  for (int i = 0; i < 2000 && !HasFailure(); ++i) {
    bool sound = i % 2 == 0;  // half of the files have a header that passes
    stack_model::Header header;
    header.version = sound ? 0 : one_of(versions);
    header.init = sound ? 24 + static_cast<std::int32_t>(random_() % 100) : one_of(positions);
    header.recording = sound ? 24 + static_cast<std::int32_t>(random_() % 8300) : one_of(positions);
    header.earliest = sound ? 24 + static_cast<std::int32_t>(random_() % 8300) : one_of(positions);
    header.size = sound ? 8192 : one_of(positions);
    header.wrap = static_cast<std::uint8_t>(random_() % (sound ? 2 : 3));
    header.reserved = "xyz";
    std::string bytes = files::u32(header.version) + header.control();
    std::size_t size = random_() % 10 == 0 ? random_() % 8192 : 8192;
    while (bytes.size() < size) bytes += files::u32(one_of(lengths)) + std::string(random_() % 300, '\0');
    bytes.resize(size);
    // An empty file is waited for; one test of that is enough, elsewhere.
    if (bytes.empty()) continue;
    SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", file " << i << ": " << header.text() << ", bytes "
                                    << size);
    ASSERT_TRUE(files::write(kStack, bytes));
    stack_model::File model{bytes};
    for (int k = 0; k < 3; ++k) push_once(model);
  }
  EXPECT_GT(outcomes_[0], 500);
  EXPECT_GT(outcomes_[24], 500);
  EXPECT_GT(outcomes_[41], 5);
}

}  // namespace
