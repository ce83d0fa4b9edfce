// Makes texts from outside (logs, peers, configuration) fit for a terminal, a file or JSON.
#ifndef CTL_TEXT_H
#define CTL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace ctl {

inline constexpr size_t SHOWN_BYTES = 300;

// The next character of a UTF-8 text; *at moves past it. A byte that begins no valid character (overlong
// forms and surrogates are not valid) gives U+FFFD and is passed alone. *at must be inside the text.
char32_t NextCharacter(std::string_view text, size_t* at);

// Converts code page 949 to UTF-8. Bytes that are no character become U+FFFD.
std::string FromCp949(std::string_view bytes);
// The same, but a text that is valid UTF-8 stays as it is.
std::string ToUtf8(std::string_view bytes);

// Puts UTF-8 on one line: control characters and those that change the direction of writing become \n, \t,
// \x1b or \u202e, bad bytes U+FFFD. The result has at most limit bytes and ends in "..." when something was
// cut.
std::string Printable(std::string_view text, size_t limit = SHOWN_BYTES);
// ToUtf8, then Printable: for showing any text from outside.
std::string Shown(std::string_view bytes);

// The columns that a UTF-8 text takes on a terminal: Hangul, Hanja and the like take two.
size_t DisplayWidth(std::string_view text);
// The text, filled with blanks to so many columns; a wider text stays.
std::string Padded(std::string_view text, size_t columns);

}  // namespace ctl

#endif
