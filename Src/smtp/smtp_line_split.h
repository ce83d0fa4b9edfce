// Splitting a text into lines. Each char* result is a new zero-terminated text on the heap, which the caller
// frees with free(). Null means failure, with errno (ENOMEM unless said otherwise). Arguments must not be
// null.
#ifndef SMTP_LINE_SPLIT_H
#define SMTP_LINE_SPLIT_H

#include <cstddef>
#include <string_view>

// The text in pieces of n bytes, each followed by the ending. A piece that would cut a character is extended
// to its end. An empty text gives one ending. EINVAL when n is 0 or the text is not UTF-8.
char* smtp_chunk_split(const char* text, size_t n, const char* ending);
// Sets *size to the most bytes that a text of this length, split into pieces of n (not 0) with an ending of
// this length each, can take, terminator included. Returns 1 when that overflows, else 0.
int smtp_split_size(size_t length, size_t n, size_t ending, size_t* size);
// Writes the pieces of a text as smtp_chunk_split does, nothing for an empty text. Returns the end of what
// was written, or null when the text is not UTF-8.
char* smtp_split_into(std::string_view text, size_t n, std::string_view ending, char* out);

#endif
