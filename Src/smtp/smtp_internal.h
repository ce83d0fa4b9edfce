// The session record and the steps of the dialogue, for the sources and the tests of this folder.
#ifndef SMTP_SMTP_INTERNAL_H
#define SMTP_SMTP_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "smtp/smtp.h"

// Limits on what a server can make the client store or wait for.
inline constexpr size_t SMTP_LINE_LIMIT = size_t{64} * 1024;
inline constexpr int SMTP_REPLY_LINE_LIMIT = 1000;
inline constexpr size_t SMTP_READ_SIZE = 1000;
// The longest text of one write.
inline constexpr size_t SMTP_WRITE_LIMIT = 0x7FFFFFFF;

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

struct smtp_header {
  std::string key;
  std::optional<std::string> value;
};
struct smtp_address {
  unsigned kind;
  std::string email;
  std::string name;
};
struct smtp_attachment {
  std::string name;
  base::UniqueText body;  // base64, already in lines
  size_t bodyLength;
};

struct smtp_session {
  unsigned flags = 0;
  base::UniqueFd sock;
  smtp_line_reader reader;
  std::vector<smtp_header> headers;  // sorted by key
  std::vector<smtp_address> addresses;
  std::vector<smtp_attachment> attachments;
  int64_t readTimeout = 0;  // seconds
  int status = SMTP_SUCCESS;
  int connectError = 0;  // errno, or negative a result of getaddrinfo(3)
  int tls_on = 0;        // when not 0, reads return end of input and writes send nothing
  std::string cafile;
  smtp_printed* print = nullptr;  // takes the mail in place of a server
};

// The session used when none could be allocated. All bits of its flags are set.
smtp_session* smtp_no_memory_session();

// Runs the body of a public function, which returns the status. Skips it when the session has already failed.
// Catches every exception; only those of memory can occur here.
template <typename Body>
int smtp_guarded(smtp_session* session, Body body) {
  if (session->status != SMTP_SUCCESS) return session->status;
  try {
    return body();
  } catch (const std::exception&) {
    return smtp_status_code_set(session, SMTP_NO_MEMORY);
  }
}

// --- Line reader. Results: a line, the rest of the input at its end, or a failure, which also empties the
// reader.
enum smtp_line_result : int {
  SMTP_LINE = 0,
  SMTP_LINE_END = 1,
  SMTP_LINE_FAILED = -1,
  SMTP_LINE_NO_MEMORY = -2
};
// Reads the next line into reader->line. A line longer than SMTP_LINE_LIMIT is a failure.
int smtp_str_getdelimfd(smtp_line_reader* reader);
// Returns 1 and sets *position when the delimiter is among the bytes, else 0.
int smtp_str_getdelimfd_search_delim(const char* bytes, size_t length, char delimiter, size_t* position);
// Turns the first length bytes held into the line, and removes them and the delimiter after them from the
// buffer. Returns 0, or -1 without memory.
int smtp_str_getdelimfd_set_line_and_buf(smtp_line_reader* reader, size_t length);
void smtp_str_getdelimfd_free(smtp_line_reader* reader);
// Frees the reader's memory and returns the given result.
int smtp_str_getdelimfd_throw_error(smtp_line_reader* reader, int result);
// The read callback of a session (its userData): waits, then receives.
ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count);
// Waits until the socket can be read, at most for the read time-out. Returns 0, or -1 with status 6.
int smtp_str_getdelimfd_read_timeout(smtp_session* session);

// --- Replies
struct smtp_reply_line {
  int code;  // 0..354, or -1 for anything else
  bool more;
  std::string_view text;  // part of the given line
};
// Splits a reply line. Only a line of more than 4 characters has a code.
smtp_reply_line smtp_parse_cmd_line(std::string_view line);
// Reads one line into reader.line and drops its last character (the carriage return). Results as
// smtp_str_getdelimfd; a failure sets status 1 or 6.
int smtp_getline(smtp_session* session);
// Reads a whole reply and returns the code of its last line. Returns -1 also when a read failed (which sets
// the status).
int smtp_read_and_parse_code(smtp_session* session);
void smtp_set_read_timeout(smtp_session* session, int64_t seconds);

// --- Writing. Each returns the status.
int smtp_write(smtp_session* session, const char* data, size_t length);
int smtp_puts(smtp_session* session, const char* text);
// Sends the text and CRLF in one write.
int smtp_puts_terminate(smtp_session* session, const char* text);
// Prints on standard error when the debug flag is set, with a space for each CR and LF.
void smtp_puts_dbg(const smtp_session* session, const char* label, std::string_view text);

// --- Steps of the dialogue. Each returns the status.
int smtp_connect(smtp_session* session, const char* server, const char* port);
int smtp_initiate_handshake(smtp_session* session);
int smtp_ehlo(smtp_session* session);
int smtp_auth_plain(smtp_session* session, const char* user, const char* password);
int smtp_auth_login(smtp_session* session, const char* user, const char* password);
// Sends "MAIL FROM" or "RCPT TO" for one address and reads the reply.
int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address);

// --- Printing the mail. Each returns the status and may throw std::bad_alloc (see smtp_guarded).
int smtp_append_address_to_header(smtp_session* session, unsigned kind, const char* key);
int smtp_print_header(smtp_session* session, const smtp_header& header);
int smtp_print_email(smtp_session* session, const char* body);
int smtp_print_nomime_email(smtp_session* session, const char* body);
int smtp_print_mime_email(smtp_session* session, const char* body);
int smtp_print_mime_header_and_body(smtp_session* session, const char* boundary, const char* body);
int smtp_print_mime_attachment(smtp_session* session, const char* boundary,
                               const smtp_attachment& attachment);
int smtp_print_mime_end(smtp_session* session, const char* boundary);

#endif
