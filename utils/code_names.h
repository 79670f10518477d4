// Names of result codes, as traces show them.
#ifndef UTILS_CODE_NAMES_H
#define UTILS_CODE_NAMES_H

namespace vk {

// The name of a VOSK_ result code; "(no name)" for a number that is none.
const char *vosk_name(int code) noexcept;

// The name of a VK_ error or attention; "(no name)" for those that have only a number.
const char *vk_name(int code) noexcept;

}  // namespace vk

#endif
