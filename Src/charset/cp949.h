// Conversion between Korean code page 949 (KS X 1001 with the Unified Hangul Code extension) and UTF-8. Only
// lead bytes 0x81..0xC8 are known: signs and Hangul, but no Hanja and no user-defined rows. The mapping
// predates the euro and the registered sign of KS X 1001: 0xA2E6 and 0xA2E7 map to nothing.
//
// The functions do not block, keep no state and trace nothing. Any thread may call them. No pointer may be
// null, except src of encode_UTF8 when len is 0.
#ifndef CHARSET_CP949_H
#define CHARSET_CP949_H

#include <cstdint>

// Code points of the codes 0x8141..0xC8FE, indexed by (lead * 256 + trail) - 0x8141. 0 means no mapping. No
// entry is in 1..0x7F.
extern const uint16_t ksc2uni_code[18366];
// Codes of the syllables U+AC00..U+D7A3, indexed by the code point - 0xAC00. Never 0.
extern const uint16_t uni2ksc_code[11172];

// Converts the len bytes at src from code page 949 to UTF-8. Returns 0 and sets *out to a NUL-terminated
// text, which the caller frees with free(), and *out_len to its length without the terminator. Returns -1 and
// leaves both unchanged for a code outside 0x8141..0xC8FE (lead byte 0x80 or 0xC9..0xFF; trail byte below
// 0x41 after 0x81, or 0xFF after 0xC8), for a len above 0x3FFFFFFF, and without memory.
//
// A byte below 0x80, including NUL, is copied. Any other byte is a lead byte and forms a code with the byte
// after it. If the last byte is a lead byte, src[len] is read as its trail byte and must be readable; nothing
// beyond src[len] is read.
//
// A code without a mapping becomes C0 A0. The 170 characters U+0080..U+07FF become two bytes, the first of
// them 0x80 | (c >> 6) instead of 0xC0 | (c >> 6). This is not valid UTF-8 (is_UTF8 rejects it, too), but the
// readers of these texts expect it.
[[nodiscard]] int32_t encode_UTF8(const char* src, uint32_t len, char** out, uint32_t* out_len);

// Converts the len bytes of UTF-8 at src to code page 949. dst has room for cap bytes, terminator included.
// Returns the number of bytes written, without the terminator. Returns -1 when text and terminator do not
// fit, and at a three-byte character that is no Hangul syllable (a space is written in its place); dst then
// holds the text converted so far, not terminated. Nothing is written at or beyond dst[cap]. A cap of 0 or
// less writes nothing and returns -1. A len of 0 or less is an empty text.
//
// A byte below 0x80 is copied, a Hangul syllable becomes its two bytes, and any other byte of 0x80 or above
// that does not begin a well-formed three-byte character becomes one space.
//
// A character that begins before src[len] is read to its end, even beyond src[len]. Each byte is read only if
// all bytes before it, from the lead byte on, belong to the character. So src[len] must be readable, and must
// not be a continuation byte unless the text goes on there. A NUL is fine.
[[nodiscard]] int32_t decode_UTF8(const char* src, int32_t len, char* dst, int32_t cap);

#endif
