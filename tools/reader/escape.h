// Texts from files made harmless: stored texts are anybody's, and a terminal obeys control characters.
#ifndef TOOLS_READER_ESCAPE_H
#define TOOLS_READER_ESCAPE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace vosk {

enum class keep { nothing, lines };  // lines: line feeds and tabs stay

// `text` with control characters, direction marks and bytes that are no UTF-8 as \n, \t, \x1b, \u{202e}; other
// characters beyond ASCII stay where `output_is_utf8`, else they are shown as bytes.
std::string escaped(std::string_view text, keep what = keep::nothing, bool output_is_utf8 = true);

// The length of the UTF-8 character at the start of `text`, 0 if there is none. `code`, if given, receives its number.
std::size_t utf8_length(std::string_view text, char32_t *code = nullptr) noexcept;

// True for characters that a terminal may obey, or that change what the characters around them look like.
bool is_hidden_character(char32_t code) noexcept;

bool is_utf8(std::string_view text) noexcept;

}  // namespace vosk

#endif
