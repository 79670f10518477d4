// The names of the environment variables.
#ifndef LIB_VARIABLES_H
#define LIB_VARIABLES_H

namespace vk {

inline constexpr char kVoskStack[] = "VOSKSTACK";       // path of the stack file
inline constexpr char kVoskOrig[] = "VOSKORIG";         // process that established the environment
inline constexpr char kVoskPid[] = "VOSKPID";           // process that owns this copy of it
inline constexpr char kVoskAddr[] = "VOSKADDR";         // the node's address, encoded, and its type
inline constexpr char kVoskPname[] = "VOSKPNAME";       // process name
inline constexpr char kVoskDisable[] = "VOSKSDISABLE";  // present: no stacks in this process

inline constexpr char kVoskReclaim[] = "VOSKRECLAIM";  // "whole": room is made by whole records

}  // namespace vk

#endif
