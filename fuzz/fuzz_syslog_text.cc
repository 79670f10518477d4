// A System Log message of an arbitrary template and arbitrary details: its size, its end, and its first lines.
#include <qx_vosk.h>

#include <vector>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const int buffer_size = in.number<std::int16_t>() % 1200;
  const std::size_t count = in.number<std::uint8_t>() % 20;
  fuzz::exact title(in.text(1000)), text(in.text(1000));
  std::vector<std::unique_ptr<fuzz::exact>> labels;
  const std::unique_ptr<vk_syslog_field_t[]> fields(new vk_syslog_field_t[count]());
  for (std::size_t i = 0; i < count; ++i) {
    fields[i].length = in.number<std::int8_t>();
    fields[i].kind = in.number<std::uint8_t>() % 4;
    labels.push_back(std::make_unique<fuzz::exact>(in.text(80)));
    fields[i].default_label = labels.back()->get();
  }
  const std::string details = in.rest();
  const std::unique_ptr<char[]> area(new char[details.size()]);
  std::copy(details.begin(), details.end(), area.get());
  const vk_syslog_tmpl_t tmpl{0, title.get(), 1, 1, text.get(), static_cast<std::uint32_t>(count), fields.get()};
  fuzz::exact out(static_cast<std::size_t>(std::max(buffer_size, 0)));
  const int used = vk_mk_syslog_msg_1(&tmpl, area.get(), static_cast<std::uint32_t>(details.size()), out.get(),
                                      buffer_size, reinterpret_cast<nl_catd>(-1));
  FUZZ_EXPECT(used == std::min(buffer_size, 946));
  if (used <= 0) return 0;
  FUZZ_EXPECT(out.get()[used - 1] == '\0');
  // Both first lines, as far as they fit in front of the last byte.
  const std::string start = std::string(title.get()) + "\n" + text.get() + "\n";
  const std::size_t fits = std::min(start.size(), static_cast<std::size_t>(used) - 1);
  FUZZ_EXPECT(start.compare(0, fits, out.get(), fits) == 0);
  return 0;
}
