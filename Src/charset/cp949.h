// Korean code page 949 (KS X 1001 with the Unified Hangul Code extension) to UTF-8 and back.
#ifndef CHARSET_CP949_H
#define CHARSET_CP949_H

#include <cstdint>

// Code points of the codes 0x8141..0xC8FE, indexed by (lead * 256 + trail) - 0x8141; 0: no mapping.
extern const uint16_t ksc2uni_code[18366];
// Codes of the syllables U+AC00..U+D7A3, indexed by the code point - 0xAC00; never 0.
extern const uint16_t uni2ksc_code[11172];

int32_t encode_UTF8(const char* src, uint32_t len, char** out, uint32_t* out_len);
int32_t decode_UTF8(const char* src, int32_t len, char* dst, int32_t cap);
int is_UTF8(const char* str);

#endif
