// The fields of an identifier, each with its encoder and decoder.
//
// Encoders write into buffers that the caller has cleared; they write no terminator where the field is filled. Decoders
// read up to the zero byte, so the caller hands them exactly the field.
#ifndef UTILS_VK_EID_FIELDS_H
#define UTILS_VK_EID_FIELDS_H

#include <sys/time.h>

#include <cstddef>
#include <cstdint>

namespace vk {

inline constexpr std::size_t kHeaderDigits = 1, kLocationDigits = 6, kSecondsDigits = 6, kMicrosecondsDigits = 4,
                             kTimeDigits = kSecondsDigits + kMicrosecondsDigits, kAddressDigits = 24;
inline constexpr std::size_t kLocationAt = 1, kTimeAt = 7, kAddressAt = 17, kAddressTypeAt = 41, kEidDigits = 42;

inline constexpr int kHighestVersion = 2;
inline constexpr unsigned int kHighestLocation = 2;
inline constexpr std::size_t kNameSlot = 256;

// Syslog facilities are shifted by three bits where programs hand them over.
inline constexpr unsigned int kHighestFacility = 184, kHighestPriority = 7;
constexpr unsigned int facility_number(unsigned int facility) noexcept {
  return (facility & 0x3f8) >> 3;
}

int vk_get_base_64_hdr(int trace_on, const char *trace_path, int version, unsigned int location,
                       char *hdr64rep) noexcept;
int vk_conv_base_64_hdr(int trace_on, const char *trace_path, const char *hdr64rep, unsigned int *version_id,
                        unsigned int *location_mask) noexcept;

// The current time, and its seconds.
int vk_get_base_64_time(int trace_on, const char *trace_path, char *tod64rep, std::int64_t *seconds) noexcept;
int vk_conv_base_64_time(int trace_on, const char *trace_path, const char *tod64rep, timeval *tbuf) noexcept;

int vk_get_base_64_inode(int trace_on, const char *trace_path, const char *file, char *inode64rep) noexcept;
// Finds the names in `directory` that have the i-node: `list_size` slots of kNameSlot bytes, of each of which 255 are
// written.
int vk_conv_base_64_inode(int trace_on, const char *trace_path, const char *directory, const char *inode64rep,
                          char *list, int list_size) noexcept;

int vk_get_base_64_templ(int trace_on, const char *trace_path, std::uint32_t templ_id, char *templ64rep) noexcept;
int vk_conv_base_64_templ(int trace_on, const char *trace_path, const char *templ64rep,
                          unsigned int *templ_id) noexcept;

int vk_get_base_64_selector(int trace_on, const char *trace_path, unsigned int facility, unsigned int priority,
                            char *sel64rep) noexcept;
int vk_conv_base_64_selector(int trace_on, const char *trace_path, const char *selector, unsigned int *facility,
                             unsigned int *priority) noexcept;

}  // namespace vk

#endif
