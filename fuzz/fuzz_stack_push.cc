// A push over an arbitrary file: result and bytes are the model's.
#include <pthread.h>
#include <qx_vosk.h>

#include "fuzz/recording_stack.h"
#include "support/stack_model.h"

namespace {

fuzz::memory_file &stack() {
  return fuzz::recording_stack(nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const std::string detail(in.number<std::uint16_t>() % 1100, 'd');
  stack_model::File model{in.rest()};
  // A file that another process seems to be creating is waited for; other tests do that.
  if (model.bytes.empty() || model.bytes.compare(0, 4, "VKTF") == 0 || model.bytes.size() > 20000) return 0;
  stack().set(model.bytes);

  vk_eid_t fid = {};
  fuzz::exact text(detail);
  const int code =
      vk_push_stack_1(&fid, nullptr, "fuzz", "product", "file", "1", 1, 0, text.get(), nullptr, "cat", 1, 1, "message");
  stack_model::Push push;
  push.identifier.assign(fid, sizeof fid);
  push.seconds = static_cast<std::uint32_t>(vk_a64l(push.identifier.substr(7, 6).c_str()));
  push.process_name = "fuzz";
  push.pid = getpid();
  push.thread = static_cast<std::int32_t>(pthread_self());
  push.file = "file";
  push.version = "1";
  push.product = "product";
  push.line = push.set = push.number = 1;
  push.catalogue = "cat";
  push.message = "message";
  push.detail = detail;
  const stack_model::Record record = stack_model::build(push);
  const stack_model::Outcome outcome = stack_model::push(model, record);
  const int attention = detail.empty() ? VK_NO_DETAILS : record.over_length ? VK_RECORD_TRUNCATED : 0;
  FUZZ_EXPECT(code == (outcome.code != 0 ? outcome.code : attention));
  FUZZ_EXPECT(stack_model::difference(model, stack().path()).empty());
  return 0;
}
