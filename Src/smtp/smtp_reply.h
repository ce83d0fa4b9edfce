// The replies of the server, read within limits.
#ifndef SMTP_SMTP_REPLY_H
#define SMTP_SMTP_REPLY_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "smtp/smtp.h"
#include "smtp/smtp_line_reader.h"

// The limit on what a server can make the client wait for.
inline constexpr int SMTP_REPLY_LINE_LIMIT = 1000;

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
void smtp_set_read_timeout(smtp_session* session, int64_t replySeconds);

#endif
