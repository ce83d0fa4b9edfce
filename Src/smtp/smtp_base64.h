// Base64 (RFC 4648). Each char* result is a new zero-terminated text on the heap, which the caller frees with
// free(). Null means failure, with errno (ENOMEM unless said otherwise). Arguments must not be null.
#ifndef SMTP_SMTP_BASE64_H
#define SMTP_SMTP_BASE64_H

#include <cstddef>

#include "base/unique_handles.h"

// Base64 in one line. *base64Length (may be null) receives its length. A length of SIZE_MAX means that data
// is a text.
char* smtp_base64_encode(const void* unencoded, size_t unencodedLength, size_t* base64Length = nullptr);
// Writes the four characters of the last 1, 2 or 3 bytes of the data, with padding and without a terminator.
void smtp_base64_encode_block(const unsigned char* block, size_t count, char* base64);

// Base64 of data that arrives in pieces, in the lines of an attachment. The result equals smtp_chunk_split of
// smtp_base64_encode of all the data: lines of 78 characters with CRLF, or a single CRLF without data. The
// lines are written in place; there is never a second copy.
class smtp_base64_lines_writer {
 public:
  // The number of data bytes that make two whole lines. Every piece but the last must be a multiple of it.
  static constexpr size_t TWO_BASE64_LINES_DATA = 117;

  // Makes room for the lines of so much more data. Returns 0, or -1 without memory.
  int ReserveBase64Lines(size_t dataLength);
  // Appends the lines of a piece and makes room as needed. Returns 0, or -1 without memory.
  int AddBase64Lines(const void* data, size_t length);
  // Returns the text and its length, or null without memory.
  base::UniqueText FinishBase64Lines(size_t* linesLength);

 private:
  int GrowBase64Lines(size_t more, bool ahead);
  void AddLastBase64Lines(const unsigned char* data, size_t length);

  base::UniqueText base64Lines_;
  size_t base64Used_ = 0;
  size_t base64Allocated_ = 0;
};

// Writes the two lines of TWO_BASE64_LINES_DATA bytes of data: 160 characters with the line ends, without a
// terminator.
using smtp_base64_two_lines_t = void(const unsigned char* data, char* base64);
smtp_base64_two_lines_t smtp_base64_two_lines_by_table;
// Returns the fastest implementation for this processor.
smtp_base64_two_lines_t* smtp_base64_two_lines();

// The same in one call. A length of SIZE_MAX means that data is a text.
char* smtp_base64_lines(const void* unencoded, size_t unencodedLength, size_t* linesLength);

#endif
