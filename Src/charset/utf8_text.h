// Texts of UTF-8: their characters, their prefixes, how they are shown. Nothing here keeps state; every
// function may be called from any thread. Without memory they throw std::bad_alloc.
#ifndef CHARSET_UTF8_TEXT_H
#define CHARSET_UTF8_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace charset {

// Stands for what is no character.
inline constexpr std::string_view REPLACEMENT_CHARACTER = "\xEF\xBF\xBD";

// Whether a byte may stand in a character behind its lead byte.
inline bool IsUtf8Continuation(uint8_t utf8Byte) {
  return (utf8Byte & 0xC0) == 0x80;
}

// Bytes of the UTF-8 character that the text begins with, 1 to 4; 0 when it begins with none (an overlong
// form, a surrogate and a value above U+10FFFF are none), or is empty.
size_t Utf8Character(std::string_view utf8Text);

// Whether the text is one such character without its last bytes.
bool IsCutUtf8Character(std::string_view utf8Text);

// The code point of one such character.
char32_t CodePoint(std::string_view utf8Text);

// The longest beginning of a UTF-8 text, whole characters only, of at most limit bytes.
std::string_view Utf8Prefix(std::string_view utf8Text, size_t limit);

// How a character that must not be printed is written: as its bytes ("\xe2\x80\xae"), or as its code point
// ("\u202e", "\x9b"; a tab is "\t").
enum class Escapes { BYTES, CODE_POINTS };
// UTF-8 on one line of at most limit bytes (3 at least), for people to read: a newline becomes "\n", other
// control characters and those that turn the direction of writing are escaped, a byte that begins no
// character becomes U+FFFD. "..." ends a text that was cut.
std::string Printable(std::string_view utf8Text, size_t limit, Escapes escapes);

}  // namespace charset

#endif
