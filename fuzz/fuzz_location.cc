// The location text: always 46 characters, filled up with blanks or cut with a sign of it.
#include <libgen.h>
#include <qx_vosk.h>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  std::uint32_t flags[VK_FLAG_COUNT] = {};
  const auto missing = in.number<std::uint8_t>();
  for (unsigned i = 0; i < 4; ++i) flags[VK_FLAG_NO_FILE_NAME + i] = missing >> i & 1;
  const int line = in.number<std::int32_t>();
  fuzz::exact product(in.text(300)), file(in.text(300)), version(in.text(300)), field(46);
  FUZZ_EXPECT(vk_make_file_info_msg(0, nullptr, field.get(), product.get(), file.get(), version.get(), line, flags) ==
              46);
  std::string path = file.get();
  std::string expected = flags[VK_FLAG_NO_PRODUCT] != 0 ? "qrn_product" : product.get();
  expected += ",";
  expected += flags[VK_FLAG_NO_FILE_NAME] != 0 ? "unknown_file" : basename(path.data());
  expected += ",";
  expected += flags[VK_FLAG_NO_VERSION] != 0 ? "no_version_num" : version.get();
  expected += "," + std::to_string(flags[VK_FLAG_BAD_LINE] != 0 ? 0 : line);
  if (expected.size() < 46) {
    expected.resize(46, ' ');
  } else {
    expected = expected.substr(0, 45) + ">";
  }
  FUZZ_EXPECT(field.bytes() == expected);
  return 0;
}
