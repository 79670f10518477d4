// Random incidents, whole and broken, into one stack after the other, beside the model of the file.
#include <cstring>
#include <random>

#include "stack/stack_test.h"
#include "support/stack_model.h"

namespace {

using stack_model::Argument;
using stack_test::header;
using stack_test::Incident;
using stack_test::kStack;
using stack_test::push;

class PushRandom : public stack_test::StackTest {
 protected:
  // A null pointer, an empty text, or bytes of any kind but zero.
  struct Text {
    bool given = false;
    std::string bytes;
    const char *pointer() const { return given ? bytes.c_str() : nullptr; }
    bool is_set() const { return given && !bytes.empty(); }
  };
  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
  Text text(unsigned longest) {
    if (pick(6) == 0) return {};
    Text made{true, std::string(pick(longest + 1), '\0')};
    const bool plain = pick(3) != 0;
    for (char &byte : made.bytes) byte = static_cast<char>(plain ? 'a' + pick(26) : 1 + pick(255));
    return made;
  }
  std::int32_t number() {
    const std::int32_t edges[] = {INT32_MIN, -1, 0, 1, INT32_MAX};
    return pick(2) == 0 ? edges[pick(5)] : static_cast<std::int32_t>(pick(100000));
  }

  // Pushes with one of a few formats and remembers the arguments that it stands for.
  int push_with_arguments(Incident in, std::vector<Argument> &arguments) {
    const int i = number();
    const auto wide = static_cast<long>(random_());
    const Text s = text(90), t = text(90);
    const double real = static_cast<double>(wide) / 3;
    std::uint64_t bits;
    std::memcpy(&bits, &real, sizeof bits);
    const auto low = static_cast<std::uint64_t>(static_cast<std::int64_t>(i));
    const auto all = static_cast<std::uint64_t>(wide);
    switch (pick(7)) {
      case 0:
        in.message = "%d%% of %s";
        arguments = {{1, "", low}, {5, s.bytes, 0}};
        return push_message(in, i, s.pointer());
      case 1:
        in.message = "%2$s before %1$ld";
        arguments = {{3, "", all}, {5, t.bytes, 0}};
        return push_message(in, wide, t.pointer());
      case 2:
        in.message = "%s%s%x%p";
        arguments = {{5, s.bytes, 0}, {5, t.bytes, 0}, {2, "", low & 0xffffffff}, {7, "", all}};
        return push_message(in, s.pointer(), t.pointer(), static_cast<unsigned>(i),
                            reinterpret_cast<const void *>(wide));
      case 3:
        in.message = "%f %lu";
        arguments = {{6, "", bits}, {4, "", all}};
        return push_message(in, real, static_cast<unsigned long>(wide));
      case 4:
        in.message = "%1$s and %3$s";  // a gap: nobody can tell the type of the second
        arguments = {};
        return push_message(in, s.pointer(), i, t.pointer());
      case 5:
        in.message = nullptr;
        arguments = {};
        return push_message(in);
      default:
        in.message = "nothing to fill in";
        arguments = {};
        return push_message(in);
    }
  }
  template <typename... Arguments>
  int push_message(const Incident &in, Arguments... arguments) {
    message_ = in.message;
    return push(in, arguments...);
  }

  // The attention that a recorded incident ends with.
  static int last_attention(const stack_model::Push &made, const Text &resource, const Text &data, bool over_length,
                            bool has_fid) {
    const bool no_message = made.message.empty();
    const bool no_catalogue = made.catalogue.empty() || made.set < 0 || made.number < 0;
    if (over_length) return VK_RECORD_TRUNCATED;
    if (!has_fid) return VK_NO_EID_PTR;
    if (!data.is_set()) return VK_NO_DETAILS;
    if (no_message && no_catalogue) return VK_NO_FILE_INFO;
    if (made.file.empty() || made.version.empty() || made.product.empty() || made.line < 1) return VK_NO_FILE_INFO;
    if (no_catalogue) return VK_NO_MSG_INFO;
    if (no_message) return VK_NO_DEFAULT_MSG;
    return resource.is_set() ? 0 : VK_NO_RESOURCE_NAME;
  }

  // One incident into both; the outcome of the model.
  stack_model::Outcome push_once(stack_model::File &model) {
    const bool long_one = pick(4) == 0;
    const Text resource = text(20), product = text(long_one ? 300 : 20), file = text(long_one ? 300 : 20),
               version = text(20), data = text(long_one ? 1500 : 200), catalogue = text(30);
    std::string associated;
    if (pick(2) == 0) {
      associated.assign(43, '\0');
      for (char &byte : associated) byte = static_cast<char>(pick(256));
    }
    Incident in;
    const bool has_fid = pick(8) != 0;
    in.fid = has_fid ? &fid_ : nullptr;
    in.assoc_fid = associated.empty() ? nullptr : associated.data();
    in.resource = resource.pointer();
    in.product = product.pointer();
    in.file = file.pointer();
    in.version = version.pointer();
    in.data = data.pointer();
    in.catalogue = catalogue.pointer();
    in.line = number();
    in.set = number();
    in.number = number();

    stack_model::Push made;
    const std::int64_t seconds = pick(10) == 0 ? 4294967290 + pick(20) : pick(2000000000);
    platform::Calls calls;
    calls.fixed_clock(seconds, stack_test::kMicroseconds);
    forget_identifier();
    const int code = calls.during([&] { return push_with_arguments(in, made.arguments); });

    made.identifier = identifier();
    if (!has_fid) {  // what the caller did not get: the same again, of the same time
      platform::Calls again;
      again.fixed_clock(seconds, stack_test::kMicroseconds);
      std::int64_t same_seconds = 0;
      vk_eid_t eid;
      EXPECT_EQ(again.during([&] { return vk_generate_eid_2(0, nullptr, kStack, 0, ~0u, ~0u, &same_seconds, eid); }),
                0);
      made.identifier.assign(eid, sizeof eid);
    }
    if (!associated.empty() && associated[0] != '\0') made.associated = associated;
    made.seconds = static_cast<std::uint32_t>(seconds);
    made.process_name = "service";
    made.pid = getpid();
    made.parent = parent_;
    made.thread = static_cast<std::int32_t>(pthread_self());
    made.file = file.bytes;
    made.version = version.bytes;
    made.product = product.bytes;
    made.line = in.line;
    made.catalogue = catalogue.bytes;
    made.set = in.set;
    made.number = in.number;
    made.message = message_ != nullptr ? message_ : "";
    made.detail = data.bytes;
    const stack_model::Record record = stack_model::build(made);
    const stack_model::Outcome outcome = stack_model::push(model, record);
    EXPECT_EQ(code,
              outcome.code != 0 ? outcome.code : last_attention(made, resource, data, record.over_length, has_fid));
    EXPECT_EQ(identifier() == untouched(), !has_fid || outcome.code != 0);
    EXPECT_EQ(stack_model::difference(model, kStack), "");
    EXPECT_TRUE(calls.left_open().empty());
    return outcome;
  }

  static constexpr unsigned kSeed = 19700101;
  std::mt19937_64 random_{kSeed};
  std::int32_t parent_ = 0;
  const char *message_ = nullptr;
};

TEST_F(PushRandom, LeavesTheBytesThatTheModelLeaves) {
  int pushes = 0, refused = 0, wrapped = 0;
  for (int stacks = 0; stacks < 120 && !HasFailure(); ++stacks) {
    unlink(kStack);
    set("VOSKORIG", std::to_string(stacks % 2 == 0 ? getpid() : 1));
    parent_ = stacks % 2 == 0 ? 0 : getppid();
    stack_model::File model = stack_model::created(16384);
    if (stacks % 3 != 0) {  // a file of another size, as on a file system with little room
      const auto size = static_cast<std::int32_t>(8192 + pick(8193));
      model = stack_model::created(size);
      put_stack(model.bytes);
    }
    for (int i = 0; i < 60 && !HasFailure(); ++i) {
      SCOPED_TRACE(testing::Message() << "seed " << kSeed << ", stack " << stacks << ", push " << i);
      const stack_model::Outcome outcome = push_once(model);
      ++pushes;
      refused += outcome.code != 0;
      wrapped += outcome.wrapped && outcome.code == 0;
    }
  }
  // What a run must have met to be worth something.
  EXPECT_GE(pushes, 7000);
  EXPECT_GT(refused, 100);
  EXPECT_GT(wrapped, 50);
  EXPECT_GT(pushes - refused, 3000);
}

// Every combination of edges in a header that passes, and of those that just do not.
TEST_F(PushRandom, AgreesWithTheModelOnEveryCombinationOfEdgesInTheHeader) {
  const std::int32_t positions[] = {23, 24, 300, 8000, 16384, 16385};
  const std::int32_t sizes[] = {8191, 8192, 16384, 16385};
  const std::uint32_t lengths[] = {0, 150, 0x80000000};
  int count = 0;
  for (const std::uint32_t version : {0u, 8u, 9u}) {
    for (const std::int32_t init : positions) {
      for (const std::int32_t recording : positions) {
        for (const std::int32_t earliest : positions) {
          for (const std::int32_t size : sizes) {
            const auto wrap = static_cast<unsigned char>(count % 3);
            const std::uint32_t length = lengths[count % 7 % 3];
            SCOPED_TRACE(testing::Message() << version << " " << init << " " << recording << " " << earliest << " "
                                            << size << " " << int{wrap} << " " << length);
            std::string bytes(16384, '\0');
            for (const std::size_t at : {24u, 300u, 8000u}) bytes.replace(at, 4, files::u32(length));
            bytes.replace(0, 24, header(version, init, recording, earliest, size, wrap, "abc"));
            put_stack(bytes);
            stack_model::File model{bytes};
            push_once(model);
            ++count;
            if (HasFailure()) return;
          }
        }
      }
    }
  }
  EXPECT_EQ(count, 3 * 6 * 6 * 6 * 4);
}

}  // namespace
