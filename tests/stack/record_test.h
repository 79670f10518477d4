// An incident and what a push knows beside it, for the tests of the record builder.
#ifndef TESTS_STACK_RECORD_TEST_H
#define TESTS_STACK_RECORD_TEST_H

#include <cstring>

#include "lib/vk_push_stack/record.h"
#include "stack/stack_test.h"
#include "support/edge_buffer.h"

namespace stack_test {

class RecordTest : public testing::Test {
 protected:
  static constexpr std::size_t kUnset = 0xAAAAAAAA;

  // Builds the record; what lies behind it must still be zero, and the length must be where it belongs.
  std::string build(int expected_result) {
    unsigned char buffer[1024] = {};
    std::uint32_t length = kUnset;
    EXPECT_EQ(vk::vk_format_stack_rec(in_, flags_, context_, buffer, &length), expected_result);
    if (length > 1016) {
      ADD_FAILURE() << "length " << length;
      return "";
    }
    const std::string all(reinterpret_cast<const char *>(buffer), sizeof buffer);
    EXPECT_EQ(all.substr(0, 8), files::u32(length) + zeros(4));
    EXPECT_EQ(all.substr(length + 8), zeros(1016 - length));
    return all.substr(0, length + 8);
  }
  void set_flags(const std::vector<int> &flags) {
    for (int flag : flags) flags_[static_cast<std::size_t>(flag)] = 1;
  }
  void set_arguments(const std::vector<cu_arg_t> &arguments) {
    arguments_ = arguments;
    context_.args = arguments_.data();
    context_.arg_count = static_cast<std::int32_t>(arguments_.size());
  }
  static cu_arg_t text_argument(const char *text) {
    cu_arg_t argument{};
    argument.type = CU_ARG_STRING;
    argument.value.string = text;
    return argument;
  }
  static cu_arg_t number_argument(int type, std::uint64_t value) {
    cu_arg_t argument{};
    argument.type = type;
    argument.value.u64 = value;
    return argument;
  }

  // Exactly the bytes that may be read.
  EdgeBuffer eid_{std::string("75Oh2...2zIZ/.7S..XO.8....................\0", 43)};
  EdgeBuffer associated_{std::string("75Oh2...1zIZ/.7S..XO.8....................\0", 43)};
  vk::incident in_{nullptr, associated_.chars(), "resource", "store", "reader.c", "1.4", 42, "sector 17",
                   nullptr, "store.cat",         2,          9,       "failed"};
  vk::incident_flags flags_;
  vk::record_context context_{eid_.chars(), 1700000000, "service", 4711, 4710, 0x89abcdef, nullptr, 0, "sector 17"};

 private:
  std::vector<cu_arg_t> arguments_;
};

}  // namespace stack_test

#endif
