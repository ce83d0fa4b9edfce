// Size arithmetic with overflow checks, and strings. Each char* result is a new zero-terminated text on the
// heap, which the caller frees with free(). Null means failure, with errno (ENOMEM unless said otherwise).
// Arguments must not be null.
#ifndef SMTP_STRINGS_H
#define SMTP_STRINGS_H

#include <cstddef>
#include <string_view>

// Set *result to a op b and return 0. Return 1 on overflow; *result is then unspecified.
int smtp_si_add_size_t(size_t a, size_t b, size_t* result);
int smtp_si_sub_size_t(size_t a, size_t b, size_t* result);
int smtp_si_mul_size_t(size_t a, size_t b, size_t* result);

// realloc(3) of count * size bytes. Null with ENOMEM also on overflow; the old block then stays.
void* smtp_reallocarray(void* block, size_t count, size_t size);
char* smtp_strdup(const char* text);
// Copies the text with its terminator. Returns the terminator's address.
char* smtp_stpcpy(char* destination, const char* text);

// The text with every non-overlapping occurrence of search replaced, from left to right. An empty search
// copies the text.
char* smtp_str_replace(const char* search, const char* replace, const char* text);

// The length of the UTF-8 character that begins with this byte, 1 to 4 by its high bits, or 0 for a byte that
// begins none.
size_t smtp_utf8_charlen(char lead);
// The length in bytes of the shortest run of whole characters from the start that has at least minimum bytes,
// or of the whole text when that is shorter. A character cut by the end of the text counts as whole. SIZE_MAX
// when a character should begin at a byte that cannot begin one.
size_t smtp_strnlen_utf8(std::string_view text, size_t minimum);
// Returns 1 when any byte is 128 or above, else 0.
int smtp_str_has_nonascii_utf8(const char* text);

#endif
