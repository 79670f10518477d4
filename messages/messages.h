// The message texts by number, and where their translations are looked for.

#ifndef MESSAGES_MESSAGES_H
#define MESSAGES_MESSAGES_H

#include "qx_vosk.h"

namespace vk {

inline constexpr char kCatalogueName[] = "vosk.cat";
inline constexpr int kCatalogueSet = 1;

// The text of message `number`; never null.
inline const char *message_text(int number) noexcept {
  return number >= 0 && number < VK_MESSAGE_COUNT ? vk_mesgtbl_vk_lib[number] : vk_badid_vk_lib;
}

}  // namespace vk

#endif
