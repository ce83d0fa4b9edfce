// Korean code page 949 (KS X 1001 with the Unified Hangul Code extension) to UTF-8 and back. Only the lead
// bytes 0x81..0xC8 are known: signs and Hangul, neither Hanja nor the user-defined rows. The mapping is the
// one published before KS X 1001 gained the euro and the registered sign, so 0xA2E6 and 0xA2E7 map to
// nothing. Nothing here blocks, keeps state or traces; every function may be called from any thread. No
// pointer may be null, except src of encode_UTF8 when len is 0.
#ifndef CHARSET_CP949_H
#define CHARSET_CP949_H

#include <cstdint>

// Code points of the codes 0x8141..0xC8FE, indexed by (lead * 256 + trail) - 0x8141; 0: no mapping. No entry
// is in 1..0x7F.
extern const uint16_t ksc2uni_code[18366];
// Codes of the syllables U+AC00..U+D7A3, indexed by the code point - 0xAC00; never 0.
extern const uint16_t uni2ksc_code[11172];

// Converts the len bytes at src from code page 949 to UTF-8. Returns 0 and sets *out to a NUL-terminated
// text, which the caller frees with free(), and *out_len to its bytes before the terminator; or returns -1
// and leaves both as they are.
//   A byte below 0x80, NUL too, is copied. Any other byte is a lead byte and forms a code with the byte
//   behind it. When the last byte is a lead byte, src[len] is read as its trail byte and must be readable;
//   nothing beyond it ever is. A code that maps to nothing becomes C0 A0. The 170 characters U+0080..U+07FF
//   become two bytes of which the first is 0x80 | (c >> 6), not 0xC0 | (c >> 6): readers of these texts are
//   used to that, and a UTF-8 reader (is_UTF8, too) refuses it. -1: a code outside 0x8141..0xC8FE (lead byte
//   0x80 or 0xC9..0xFF; trail byte below 0x41 after 0x81, or 0xFF after 0xC8), len above 0x3FFFFFFF, or no
//   memory.
[[nodiscard]] int32_t encode_UTF8(const char* src, uint32_t len, char** out, uint32_t* out_len);

// Converts the len bytes of UTF-8 at src to code page 949 in dst, which has room for cap bytes, terminator
// included. Returns the bytes written before the terminator, or -1; then dst holds what had been converted so
// far, without a terminator. Nothing is written at or behind dst[cap], nothing at all when cap is 0 or less
// (and -1 returned). A len of 0 or less is an empty text.
//   A byte below 0x80 is copied, a Hangul syllable becomes its two bytes, every other byte of 0x80 or above
//   that begins no well-formed three-byte character becomes one space. A character that begins before
//   src[len] is read to its end even when that lies behind: a byte is looked at only when those before it,
//   from the lead on, are part of the character. src[len] must therefore be readable, and be no continuation
//   byte unless the text goes on there; a NUL serves. -1: the text and its terminator do not fit, or a
//   three-byte character is no Hangul syllable (a space is put in its place).
[[nodiscard]] int32_t decode_UTF8(const char* src, int32_t len, char* dst, int32_t cap);

// Tells whether the NUL-terminated str is made of whole characters: 1 when it is, or is empty, else 0. Lead
// bytes up to 0xFD are taken, so five and six bytes long forms too; overlong forms, surrogates and values
// above U+10FFFF are not looked for.
[[nodiscard]] int is_UTF8(const char* str);

#endif
