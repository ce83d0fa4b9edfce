// The lines and replies of the server, read within limits.
#ifndef SMTP_SMTP_REPLY_H
#define SMTP_SMTP_REPLY_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "smtp/smtp.h"
#include "smtp/smtp_line_reader.h"

// Limits on what a server can make the client store or wait for.
inline constexpr size_t SMTP_LINE_LIMIT = size_t{64} * 1024;
inline constexpr int SMTP_REPLY_LINE_LIMIT = 1000;
inline constexpr size_t SMTP_READ_SIZE = 1000;

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
// The read callback of a session (its userData): waits, then receives.
ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count);
// Waits until the socket can be read, at most for the read time-out. Returns 0, or -1 with status 6.
int smtp_str_getdelimfd_read_timeout(smtp_session* session);

struct smtp_reply_line {
  int code;  // 0..354, or -1 for anything else
  bool more;
  std::string_view text;  // part of the given line
};
// Splits a reply line. Only a line of more than 4 characters has a code.
smtp_reply_line smtp_parse_cmd_line(std::string_view replyLine);
// Reads one line into reader.line and drops its last character (the carriage return). Results as
// smtp_str_getdelimfd; a failure sets status 1 or 6.
int smtp_getline(smtp_session* session);
// Reads a whole reply and returns the code of its last line. Returns -1 also when a read failed (which sets
// the status).
int smtp_read_and_parse_code(smtp_session* session);
void smtp_set_read_timeout(smtp_session* session, int64_t seconds);

#endif
