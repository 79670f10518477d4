// The layout of a tar header, for reading and writing.
#ifndef TOOLS_READER_ARCHIVE_FORMAT_H
#define TOOLS_READER_ARCHIVE_FORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vosk::archive_format {

inline constexpr std::size_t kBlock = 512;
using header = std::array<unsigned char, kBlock>;

struct field {
  std::size_t at, size;
};
inline constexpr field kName{0, 100}, kMode{100, 8}, kUser{108, 8}, kGroup{116, 8}, kSize{124, 12}, kTime{136, 12},
    kSum{148, 8}, kType{156, 1}, kMagic{257, 6}, kVersion{263, 2}, kPrefix{345, 155};

inline constexpr char kRegular = '0', kExtended = 'x', kLongName = 'L';

// All bytes of the header added up, the sum itself counted as blanks.
inline std::uint32_t sum_of(const header &block) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kBlock; ++i) {
    const bool in_sum = i >= kSum.at && i < kSum.at + kSum.size;
    sum += in_sum ? static_cast<unsigned char>(' ') : block[i];
  }
  return sum;
}

inline std::int64_t padded(std::int64_t size) {
  constexpr std::int64_t kSigned = kBlock;
  return (size + kSigned - 1) / kSigned * kSigned;
}

}  // namespace vosk::archive_format

#endif
