// The exported message table and the text for numbers outside it.

#include <cstddef>
#include <iterator>

#include "messages.h"

namespace {

constexpr int kNumbers[] = {
#define VK_MSG(number, text) number,
#include "vk_messages.def"
#undef VK_MSG
};

constexpr bool in_order() {
  for (std::size_t i = 0; i < std::size(kNumbers); ++i)
    if (kNumbers[i] != static_cast<int>(i)) return false;
  return true;
}

static_assert(std::size(kNumbers) == VK_MESSAGE_COUNT && in_order(), "a text's place in the table is its number");

}  // namespace

extern "C" {

const char *const vk_mesgtbl_vk_lib[VK_MESSAGE_COUNT] = {
#define VK_MSG(number, text) text,
#include "vk_messages.def"
#undef VK_MSG
};

const char vk_badid_vk_lib[] = "Bad message id for message set vk_lib";
}
