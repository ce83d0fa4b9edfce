// Lengths of texts in code page 949, and where such texts may be cut. As in encode_UTF8, a character is one
// byte below 0x80, or a lead byte together with the byte after it, whatever that is.
#ifndef CHARSET_CP949_LENGTH_H
#define CHARSET_CP949_LENGTH_H

#include <cstddef>
#include <string_view>

namespace charset {

// The text without the half character that it may end in.
std::string_view WholeCp949Characters(std::string_view cp949);

// The length of the text as UTF-8, in bytes. A code without a mapping or outside the table counts 2.
size_t Utf8LengthOfCp949(std::string_view cp949);

// The longest prefix of whole characters that takes at most utf8Limit bytes as UTF-8.
std::string_view Cp949PrefixWithinUtf8(std::string_view cp949, size_t utf8Limit);

}  // namespace charset

#endif
