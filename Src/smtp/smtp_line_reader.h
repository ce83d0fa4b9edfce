// Reads lines of the server (smtp_reply.h), bounded.
#ifndef SMTP_SMTP_LINE_READER_H
#define SMTP_SMTP_LINE_READER_H

#include <cstddef>

#include "base/unique_handles.h"

// Limits on what a server can make the client store.
inline constexpr size_t SMTP_LINE_LIMIT = size_t{64} * 1024;
inline constexpr size_t SMTP_READ_SIZE = 1000;

// A buffered reader of lines with a delimiter. The read callback reads up to count bytes and returns their
// number, 0 at the end of input, or a negative number on failure.
struct smtp_line_reader {
  base::UniqueText buffer;
  size_t allocated = 0;
  size_t held = 0;
  base::UniqueText line;  // the last line, zero-terminated, without its delimiter
  size_t lineLength = 0;
  ptrdiff_t (*read)(smtp_line_reader* reader, char* destination, size_t count) = nullptr;
  void* userData = nullptr;
  char delimiter = '\n';
};

// The results of the line reader: a line, the rest of the input at its end, or a failure, which also empties
// the reader.
enum smtp_line_result : int {
  SMTP_LINE = 0,
  SMTP_LINE_END = 1,
  SMTP_LINE_FAILED = -1,
  SMTP_LINE_NO_MEMORY = -2
};
// Reads the next line into reader->line. A line longer than SMTP_LINE_LIMIT is a failure.
int smtp_str_getdelimfd(smtp_line_reader* reader);
// Returns 1 and sets *position when the delimiter is among the bytes received, else 0.
int smtp_str_getdelimfd_search_delim(const char* received, size_t length, char delimiter, size_t* position);
// Turns the first lineLength bytes held into the line, and removes them and the delimiter after them from the
// buffer. Returns 0, or -1 without memory.
int smtp_str_getdelimfd_set_line_and_buf(smtp_line_reader* reader, size_t lineLength);
void smtp_str_getdelimfd_free(smtp_line_reader* reader);
// Frees the reader's memory and returns the given result.
int smtp_str_getdelimfd_throw_error(smtp_line_reader* reader, int lineResult);

#endif
