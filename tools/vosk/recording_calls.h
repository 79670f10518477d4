// The library's recording routines, called with an incident.
#ifndef TOOLS_VOSK_RECORDING_CALLS_H
#define TOOLS_VOSK_RECORDING_CALLS_H

#include "include/qx_vosk.h"
#include "recording.h"

namespace vosk {

// Each returns the library's result and fills in the identifier. The library does not say that a System Log record is
// cut: `cut` does.
int call_push(const incident &what, recorder who, vk_eid_t &eid);
int call_log(const incident &what, vk_eid_t &eid, bool &cut);

// True if the System Log takes records. The library sends them in any case, and never hears whether they arrive.
bool system_log_listens();

// The format, cut between its characters where the record would cut it, or as it is where it fits. What is cut is
// filled with blanks, so that the library still sees, and says, that the record is over length.
std::string fitted_format(const incident &what, const std::string &name);

// The detail; a default one no longer than the record has room for it.
std::string fitted_detail(const incident &what, const std::string &name);

// What prints as `text` where syslog takes it for a format in which "%%" and "%m" alone are conversions.
std::string as_log_text(const std::string &text);

}  // namespace vosk

#endif
