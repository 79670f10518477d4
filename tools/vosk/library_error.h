// What libqx_vosk reported through libqx_cu.
#ifndef TOOLS_VOSK_LIBRARY_ERROR_H
#define TOOLS_VOSK_LIBRARY_ERROR_H

#include <string>

namespace vosk {

// The text of the thread's current error, as the library formatted it. Where it is not the one of `code`, or libqx_cu
// has been replaced by a library that cannot be asked, what is known of the code.
std::string library_text(int code);

// The text in one line, without control characters; the first sentence of it.
std::string one_line(const std::string &text);
std::string first_sentence(const std::string &text);

}  // namespace vosk

#endif
