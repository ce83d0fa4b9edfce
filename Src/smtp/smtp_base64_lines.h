// The base64 of data that comes in pieces, laid out in the lines of an attachment.
#ifndef SMTP_SMTP_BASE64_LINES_H
#define SMTP_SMTP_BASE64_LINES_H

#include <cstddef>
#include <cstdio>

#include "base/owners.h"

// What comes out is smtp_chunk_split of smtp_base64_encode of all the data: lines of 78 with CRLF, one CRLF
// for no data at all. It is written where it stays: no second copy exists at any time.
class smtp_base64_lines_writer {
 public:
  // Data that makes two whole lines. All pieces but the last are a multiple of it.
  static constexpr size_t UNIT = 117;

  // Room for the lines of this much more data. 0, or -1: no memory.
  int Reserve(size_t dataLength);
  // Appends the lines of a piece, making room where there is none. 0, or -1: no memory.
  int Add(const void* data, size_t length);
  // The text and its length; null: no memory.
  base::UniqueText Finish(size_t* length);

 private:
  int Grow(size_t more, bool ahead);
  void AddLast(const unsigned char* data, size_t length);

  base::UniqueText text_;
  size_t used_ = 0;
  size_t allocated_ = 0;
};

// Writes the two lines of UNIT bytes, 160 characters with their endings and no terminator.
using smtp_base64_two_lines_t = void(const unsigned char* data, char* out);
smtp_base64_two_lines_t smtp_base64_two_lines_by_table;
// The fastest one for this processor.
smtp_base64_two_lines_t* smtp_base64_two_lines();

// The same in one call without the text between: of memory (as
// smtp_base64_encode takes it), of the rest of a stream, of a file (both as smtp_file_get_contents reads
// them).
char* smtp_base64_lines(const void* data, size_t length, size_t* linesLength);
char* smtp_ffile_base64_lines(FILE* stream, size_t* linesLength);
char* smtp_file_base64_lines(const char* path, size_t* linesLength);

#endif
