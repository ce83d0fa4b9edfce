// Lengths of texts in code page 949, and where they may be cut. A character is a byte below 0x80, or a lead
// byte with the byte behind it, whatever that is, as encode_UTF8 reads them.
#ifndef CHARSET_CP949_LENGTH_H
#define CHARSET_CP949_LENGTH_H

#include <cstddef>
#include <string_view>

namespace charset {

// The text without the half of a character that it may end in.
std::string_view WholeCharacters(std::string_view text);

// Bytes of the text as UTF-8. Codes that do not convert count two.
size_t Utf8Length(std::string_view text);

// The longest beginning, whole characters only, that takes at most limit bytes of UTF-8.
std::string_view PrefixWithinUtf8(std::string_view text, size_t limit);

}  // namespace charset

#endif
