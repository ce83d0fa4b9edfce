// Size arithmetic with overflow checks; copying, replacing, splitting and checking texts. Each char* result
// is a new zero-terminated text on the heap, which the caller frees with free(). Null means failure, with
// errno (ENOMEM unless said otherwise). Arguments must not be null.
#ifndef SMTP_SMTP_STRINGS_H
#define SMTP_SMTP_STRINGS_H

#include <cstddef>
#include <string_view>

// Set *result to a op b and return 0. Return 1 on overflow; *result is then unspecified.
int smtp_si_add_size_t(size_t a, size_t b, size_t* result);
int smtp_si_sub_size_t(size_t a, size_t b, size_t* result);
int smtp_si_mul_size_t(size_t a, size_t b, size_t* result);

// realloc(3) of count * size bytes. Null with ENOMEM also on overflow; the old block then stays.
void* smtp_reallocarray(void* arrayBlock, size_t count, size_t size);
// Sets errno to ENOMEM and returns null.
char* smtp_out_of_memory();
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
size_t smtp_strnlen_utf8(std::string_view smtpText, size_t minimum);
// Returns 1 when any byte is 128 or above, else 0.
int smtp_str_has_nonascii_utf8(const char* smtpText);

// The text in pieces of n bytes, each followed by the ending. A piece that would cut a character is extended
// to its end. An empty text gives one ending. EINVAL when n is 0 or the text is not UTF-8.
char* smtp_chunk_split(const char* text, size_t n, const char* pieceEnding);
// Sets *splitSize to the most bytes that a text of this length, split into pieces of n (not 0) with an ending
// of this length each, can take, terminator included. Returns 1 when that overflows, else 0.
int smtp_split_size(size_t textLength, size_t n, size_t endingLength, size_t* splitSize);
// Writes the pieces of a text as smtp_chunk_split does, nothing for an empty text. Returns the end of what
// was written, or null when the text is not UTF-8.
char* smtp_split_into(std::string_view unsplit, size_t n, std::string_view pieceEnding, char* smtpSplit);

// The bytes that a text may have: none below lowestByte, no 127 and none of refusedBytes. Line breaks are
// below every lowestByte.
struct smtp_text_rule {
  unsigned char lowestByte;
  std::string_view refusedBytes;
  bool tab;
  bool eightBit;

  bool Allows(char smtpChar) const;
  bool Allows(const char* smtpText) const;
};

#endif
