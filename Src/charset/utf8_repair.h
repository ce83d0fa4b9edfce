// UTF-8 out of texts of which nobody knows how they are written: an engine's log may hold UTF-8, code page
// 949 and half of either. Nothing here keeps state; every function may be called from any thread. Without
// memory they throw std::bad_alloc.
#ifndef CHARSET_UTF8_REPAIR_H
#define CHARSET_UTF8_REPAIR_H

#include <cstddef>
#include <string>
#include <string_view>

namespace charset {

// The text as well-formed UTF-8, each of its lines by itself. A line of UTF-8 stays, also one that is cut
// within its last character when another character beyond ASCII stands before. Any other line is read as the
// whole of code page 949, Hanja too. What is neither becomes U+FFFD: one for a pair of high bytes, else one
// for a byte; a byte below 0x80 always stays.
std::string Repaired(std::string_view brokenText);

// Repaired, on one line of at most limit bytes: control characters are blanks, none stands at either end.
std::string OneLine(std::string_view brokenText, size_t limit);

}  // namespace charset

#endif
