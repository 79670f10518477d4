// Making room by whole records, on request.
//
// The standard reclamation clears less than a record occupies; once the file has wrapped it soon takes leftovers for
// lengths and refuses every recording. A process tree that needs its newest incidents for months asks for whole
// records.
#ifndef LIB_VK_PUSH_STACK_WHOLE_RECORDS_H
#define LIB_VK_PUSH_STACK_WHOLE_RECORDS_H

#include "lib/vk_push_stack/ctrl_info.h"

namespace vk {

// What the environment asks for: whole records where VOSKRECLAIM is "whole".
reclaim_rule chosen_rule() noexcept;

// vk_clear_records by whole records, which `image` shows: the oldest give way until the record fits in front of the
// file's end, and the header is written as far as it leads away from them. Returns 0 or -26.
int clear_whole_records(int trace_on, const char *trace_path, int fd, stack_header *header, stack_image *image,
                        std::uint32_t length) noexcept;

}  // namespace vk

#endif
