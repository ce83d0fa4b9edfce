// Checked sizes and strings. Every char* result is a fresh zero-terminated heap text that the caller
// frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not null.
#ifndef SMTP_STRINGS_H
#define SMTP_STRINGS_H

#include <cstddef>
#include <string_view>

// *result = a op b and 0; 1 when it does not fit, *result is then unspecified.
int smtp_si_add_size_t(size_t a, size_t b, size_t* result);
int smtp_si_sub_size_t(size_t a, size_t b, size_t* result);
int smtp_si_mul_size_t(size_t a, size_t b, size_t* result);

// realloc of count * size bytes; null with ENOMEM on overflow too, the old block then lives on.
void* smtp_reallocarray(void* block, size_t count, size_t size);
char* smtp_strdup(const char* text);
// Copies the text with its terminator; returns the terminator's place.
char* smtp_stpcpy(char* destination, const char* text);

// The text with every non-overlapping search text replaced, left to right. An empty search text copies.
char* smtp_str_replace(const char* search, const char* replace, const char* text);

// Bytes of the UTF-8 character that this byte leads, 1 to 4 by its high bits; 0: not a leading byte.
size_t smtp_utf8_charlen(char lead);
// Length in bytes of the shortest run of whole characters from the start that holds at least minimum bytes,
// or of the whole text when it is shorter. A character cut by the end of the text counts as whole. SIZE_MAX:
// a byte that cannot lead a character stands where one must begin.
size_t smtp_strnlen_utf8(std::string_view text, size_t minimum);
// 1 when any byte is 128 or above.
int smtp_str_has_nonascii_utf8(const char* text);

#endif
