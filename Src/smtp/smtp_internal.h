// The session record and the steps of the dialogue, shared by this folder's sources and its tests.
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

// Bounds on what a server can make the client hold or sit through.
inline constexpr size_t SMTP_LINE_LIMIT = size_t{64} * 1024;
inline constexpr int SMTP_REPLY_LINE_LIMIT = 1000;
inline constexpr size_t SMTP_READ_SIZE = 1000;
// The longest text one write takes.
inline constexpr size_t SMTP_WRITE_LIMIT = 0x7FFFFFFF;

// A buffered reader of delimited lines. read fills up to count bytes and returns how many, 0 at the end of
// input, below 0 on failure.
struct smtp_line_reader {
  base::UniqueText buffer;
  size_t allocated = 0;
  size_t held = 0;
  base::UniqueText line;  // last line, without its delimiter, zero-terminated
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
  int tls_on = 0;  // when not 0: reads meet the end of input, writes send nothing
  std::string cafile;
  smtp_printed* print = nullptr;  // takes the mail in place of a server
};

// The session that stands in for one that could not be allocated; its flags are all ones.
smtp_session* smtp_no_memory_session();

// Runs one public operation's body, which returns its status, unless the session already failed. No exception
// leaves: the only ones that the library raises here are those of memory.
template <typename Body>
int smtp_guarded(smtp_session* session, Body body) {
  if (session->status != SMTP_SUCCESS) return session->status;
  try {
    return body();
  } catch (const std::exception&) {
    return smtp_status_code_set(session, SMTP_NO_MEMORY);
  }
}

// --- Line reader. Results: a line, the rest before the end of input, or a failure that emptied the reader.
enum smtp_line_result : int {
  SMTP_LINE = 0,
  SMTP_LINE_END = 1,
  SMTP_LINE_FAILED = -1,
  SMTP_LINE_NO_MEMORY = -2
};
// Reads the next line into reader->line. A line beyond SMTP_LINE_LIMIT is a failure.
int smtp_str_getdelimfd(smtp_line_reader* reader);
// 1 and *position when the delimiter is among the bytes, else 0.
int smtp_str_getdelimfd_search_delim(const char* bytes, size_t length, char delimiter, size_t* position);
// Makes the first length bytes held the line and drops them with the delimiter behind. 0, or -1: no memory.
int smtp_str_getdelimfd_set_line_and_buf(smtp_line_reader* reader, size_t length);
void smtp_str_getdelimfd_free(smtp_line_reader* reader);
// Frees and returns the result given.
int smtp_str_getdelimfd_throw_error(smtp_line_reader* reader, int result);
// The read callback of a session (its userData): waits, then receives.
ptrdiff_t smtp_str_getdelimfd_read(smtp_line_reader* reader, char* destination, size_t count);
// Waits until the socket can be read, up to the read time-out: 0, else -1 with status 6.
int smtp_str_getdelimfd_read_timeout(smtp_session* session);

// --- Replies
struct smtp_reply_line {
  int code;  // 0..354, else -1
  bool more;
  std::string_view text;  // of the line given
};
// Takes a line apart. Only one of more than 4 characters has a code.
smtp_reply_line smtp_parse_cmd_line(std::string_view line);
// One line into reader.line, its last character (the carriage return) cut. Result of smtp_str_getdelimfd; a
// failure sets status 1 or 6.
int smtp_getline(smtp_session* session);
// Reads a whole reply; the code of its last line counts. -1 also when a read failed (status set).
int smtp_read_and_parse_code(smtp_session* session);
void smtp_set_read_timeout(smtp_session* session, int64_t seconds);

// --- Writing: each returns the status.
int smtp_write(smtp_session* session, const char* data, size_t length);
int smtp_puts(smtp_session* session, const char* text);
// The text and CRLF, in one write.
int smtp_puts_terminate(smtp_session* session, const char* text);
// Prints to standard error when the debug flag is set, each CR and LF as a space.
void smtp_puts_dbg(const smtp_session* session, const char* label, std::string_view text);

// --- Steps of the dialogue: each returns the status.
int smtp_connect(smtp_session* session, const char* server, const char* port);
int smtp_initiate_handshake(smtp_session* session);
int smtp_ehlo(smtp_session* session);
int smtp_auth_plain(smtp_session* session, const char* user, const char* password);
int smtp_auth_login(smtp_session* session, const char* user, const char* password);
// "MAIL FROM" or "RCPT TO" for one address, and its reply.
int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address);

// --- Printing the mail: each returns the status. May throw std::bad_alloc (see smtp_guarded).
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
