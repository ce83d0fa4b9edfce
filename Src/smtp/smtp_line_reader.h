// What a session keeps of the server's lines while it reads them (smtp_reply.h).
#ifndef SMTP_SMTP_LINE_READER_H
#define SMTP_SMTP_LINE_READER_H

#include <cstddef>

#include "base/unique_handles.h"

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

#endif
