// Numbers in texts.
#ifndef TOOLS_READER_NUMBER_H
#define TOOLS_READER_NUMBER_H

#include <string_view>

namespace vosk {

// True if all of `text` is a decimal number that fits.
bool parse_number(std::string_view text, int &number);
bool parse_number(std::string_view text, unsigned &number);
bool parse_number(std::string_view text, long &number);
bool parse_number(std::string_view text, unsigned long long &number);

}  // namespace vosk

#endif
