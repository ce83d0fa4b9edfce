// The core of line splitting, on memory that the caller sized.
#ifndef SMTP_SMTP_SPLIT_H
#define SMTP_SMTP_SPLIT_H

#include <cstddef>
#include <string_view>

// *size = bytes that a text of this length and its terminator take at most once split into pieces of n (not
// 0), each with an ending of this length. 1 when that does not fit, else 0.
int smtp_split_size(size_t length, size_t n, size_t ending, size_t* size);
// Writes the pieces of a text (see smtp_chunk_split), nothing for an empty one. Returns the end of what was
// written, null when the text is not UTF-8.
char* smtp_split_into(std::string_view text, size_t n, std::string_view ending, char* out);

#endif
