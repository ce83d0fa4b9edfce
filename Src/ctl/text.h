// Texts of other people - logs, peers, configuration - made fit for a terminal, a file or JSON.
#ifndef CTL_TEXT_H
#define CTL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace ctl {

inline constexpr size_t SHOWN_BYTES = 300;

// The next character of a UTF-8 text; at moves behind it. U+FFFD for a byte that begins none (overlong forms
// and surrogates are none), which is then passed alone. at must be inside the text.
char32_t NextCharacter(std::string_view text, size_t* at);

// UTF-8 of a text in code page 949; U+FFFD for what it has no character for.
std::string FromCp949(std::string_view bytes);
// The same, but a text that is sound UTF-8 already stays.
std::string ToUtf8(std::string_view bytes);

// UTF-8 on one line: control characters, and those that turn the direction of writing, as \n, \t, \x1b or
// \u202e, bad bytes as U+FFFD; at most limit bytes, the last of them "..." when something was cut.
std::string Printable(std::string_view text, size_t limit = SHOWN_BYTES);
// Both: what is shown of any text that came from outside.
std::string Shown(std::string_view bytes);

// Columns that a UTF-8 text takes on a terminal: Hangul, Hanja and their like take two.
size_t DisplayWidth(std::string_view text);
// The text with blanks up to so many columns; a wider one stays.
std::string Padded(std::string_view text, size_t columns);

}  // namespace ctl

#endif
