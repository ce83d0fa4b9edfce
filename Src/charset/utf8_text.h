// Texts of UTF-8: their characters, their prefixes, how they are shown; and UTF-8 out of texts of which
// nobody knows how they are written: an engine's log may hold UTF-8, code page 949 and half of either.
// Nothing here keeps state; every function may be called from any thread. Without memory they throw
// std::bad_alloc.
#ifndef CHARSET_UTF8_TEXT_H
#define CHARSET_UTF8_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace charset {

// Bytes of the UTF-8 character that the text begins with, 1 to 4; 0 when it begins with none (an overlong
// form, a surrogate and a value above U+10FFFF are none), or is empty.
size_t Utf8Character(std::string_view utf8);

// The code point of one such character.
char32_t CodePoint(std::string_view utf8);

// The longest beginning of a UTF-8 text, whole characters only, of at most limit bytes.
std::string_view Utf8Prefix(std::string_view utf8, size_t limit);

// The text as well-formed UTF-8, each of its lines by itself. A line of UTF-8 stays, also one that is cut
// within its last character when another character beyond ASCII stands before. Any other line is read as the
// whole of code page 949, Hanja too. What is neither becomes U+FFFD: one for a pair of high bytes, else one
// for a byte; a byte below 0x80 always stays.
std::string Repaired(std::string_view text);

// Repaired, on one line of at most limit bytes: control characters are blanks, none stands at either end.
std::string OneLine(std::string_view text, size_t limit);

// How a character that must not be printed is written: as its bytes ("\xe2\x80\xae"), or as its code point
// ("\u202e", "\x9b"; a tab is "\t").
enum class Escapes { BYTES, CODE_POINTS };
// UTF-8 on one line of at most limit bytes (3 at least), for people to read: a newline becomes "\n", other
// control characters and those that turn the direction of writing are escaped, a byte that begins no
// character becomes U+FFFD. "..." ends a text that was cut.
std::string Printable(std::string_view utf8, size_t limit, Escapes escapes);

}  // namespace charset

#endif
