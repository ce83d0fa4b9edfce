// Splitting a text into lines. Every char* result is a fresh zero-terminated heap text that the caller
// frees with free(); null means failure with errno (ENOMEM unless said otherwise). Arguments are not null.
#ifndef SMTP_LINE_SPLIT_H
#define SMTP_LINE_SPLIT_H

#include <cstddef>
#include <string_view>

// The text in pieces of n bytes, each followed by the ending; a piece grows to the end of the character it
// would cut. An empty text gives one ending. EINVAL: n is 0 or the text is not UTF-8.
char* smtp_chunk_split(const char* text, size_t n, const char* ending);
// *size = bytes that a text of this length and its terminator take at most once split into pieces of n (not
// 0), each with an ending of this length. 1 when that does not fit, else 0.
int smtp_split_size(size_t length, size_t n, size_t ending, size_t* size);
// Writes the pieces of a text (see smtp_chunk_split), nothing for an empty one. Returns the end of what was
// written, null when the text is not UTF-8.
char* smtp_split_into(std::string_view text, size_t n, std::string_view ending, char* out);

#endif
