// An arbitrary archive: every member lies in it, has a name that stays below a directory, and reads as it stands there.
#include <fcntl.h>

#include "fuzz/target.h"
#include "reader/archive.h"
#include "reader/archive_format.h"

namespace {

namespace format = vosk::archive_format;

// Headers whose sum is wrong end the reading at once, so most of them get the right one.
void mend_sums(std::string &bytes) {
  for (std::size_t at = 0; at + format::kBlock <= bytes.size(); at += format::kBlock) {
    if (bytes.compare(at + format::kMagic.at, 5, "ustar") != 0) continue;
    format::header block;
    std::memcpy(block.data(), bytes.data() + at, block.size());
    (void)std::snprintf(bytes.data() + at + format::kSum.at, format::kSum.size, "%06o", format::sum_of(block));
  }
}

bool stays_below(const std::string &name) {
  return !name.empty() && name[0] != '/' && ("/" + name + "/").find("/../") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const bool mend = in.number<std::uint8_t>() != '!';
  std::string bytes = in.rest();
  if (mend) mend_sums(bytes);
  static fuzz::memory_file file("archive");
  file.set(bytes);
  const int fd = open(file.path(), O_RDONLY | O_CLOEXEC);
  FUZZ_EXPECT(fd >= 0);
  const vosk::archive_contents contents = vosk::list_archive(fd);
  FUZZ_EXPECT(contents.members.size() <= bytes.size() / format::kBlock);
  if (!contents.members.empty()) FUZZ_EXPECT(vosk::is_archive(fd));
  for (const vosk::archive_member &member : contents.members) {
    FUZZ_EXPECT(stays_below(member.name));
    FUZZ_EXPECT(member.name.ends_with(member.base_name()));
    const auto offset = static_cast<std::size_t>(member.offset), length = static_cast<std::size_t>(member.size);
    FUZZ_EXPECT(member.offset >= 0 && member.size >= 0 && offset <= bytes.size() && length <= bytes.size() - offset);
    std::vector<unsigned char> content;
    FUZZ_EXPECT(vosk::read_member(fd, member, content));
    FUZZ_EXPECT(content.size() == length &&
                bytes.compare(offset, length, std::string(content.begin(), content.end())) == 0);
  }
  (void)close(fd);
  return 0;
}
