// A plain SMTP client (RFC 5321, RFC 4954 AUTH) around one session record with a sticky status.
//
// One session carries one mail: smtp_open, smtp_auth, the additions in any order, smtp_mail, smtp_close. The
// session remembers the first failure. Every operation looks at that status first and, when it is not 0, does
// nothing and returns it; so a caller may issue all calls unchecked and read the outcome from smtp_close. One
// bad list entry thus stops the whole mail.
//
// The dialogue examines few replies: those of AUTH, of DATA and the one after the final dot. The greeting and
// the replies to EHLO, MAIL FROM and RCPT TO are read and dropped; a refused sender or recipient shows up at
// DATA or after the dot. Codes of 355 and above all read as "not what was hoped for". There is no TLS.
//
// Waiting: each read waits up to the stage's time-out (handshake and AUTH 300 s, MAIL FROM and RCPT TO 300 s,
// DATA 120 s, final reply 600 s), and sending waits that long for a peer that takes nothing (content 180 s).
// Name resolution and connecting wait as long as the system does. A stop of the agent cuts each of them once
// its grace is over (base/stop.h), which reads as a failure of that step. A line of 64 KiB or a reply of
// 1,000 lines is given up as a failed read.
//
// Texts are zero-terminated and of any ASCII superset; what they may hold is said at each operation, and no
// text can ever add a line to the mail. Texts are copied. A session belongs to one thread at a time;
// different sessions are independent. No function throws. The session argument is never null.
#ifndef SMTP_SMTP_H
#define SMTP_SMTP_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

struct smtp_session;

enum smtp_status : int {
  SMTP_SUCCESS = 0,
  SMTP_NO_MEMORY = 1,
  SMTP_CONNECT_FAILED = 2,    // name not resolved, or no address of it took the connection
  SMTP_HANDSHAKE_FAILED = 3,  // anything that failed between the connection and the reply to EHLO
  SMTP_AUTH_FAILED = 4,       // anything that failed in AUTH, the refusal included
  SMTP_SEND_FAILED = 5,
  SMTP_RECEIVE_FAILED = 6,
  SMTP_CLOSE_FAILED = 7,
  SMTP_UNEXPECTED_CODE = 8,
  SMTP_INVALID = 9,
  SMTP_FILE_FAILED = 10,
  SMTP_DATE_FAILED = 11,
  SMTP_UNKNOWN = 12
};

enum smtp_address_type : unsigned {
  SMTP_ADDRESS_FROM = 0,
  SMTP_ADDRESS_TO = 1,
  SMTP_ADDRESS_CC = 2,
  SMTP_ADDRESS_BCC = 3
};

enum smtp_auth_method : int { SMTP_METHOD_NONE = 1, SMTP_METHOD_PLAIN = 2, SMTP_METHOD_LOGIN = 3 };

// Bit of the flags: print every line sent and received, credentials included, to standard error.
inline constexpr unsigned SMTP_FLAG_DEBUG = 1;
// As a length: the data is a zero-terminated text.
inline constexpr size_t SMTP_TEXT_LENGTH = SIZE_MAX;

// Connects to host and port (number or service name), takes the greeting and says EHLO. connection_security
// has no effect; cafile may be null and is only kept. Sets SIGPIPE to ignored for the process. *session
// always becomes a session that smtp_close takes, whatever the result: the shared out-of-memory session,
// stuck at status 1, when there was no room for one. Returns the status: 0, 1, 2, 3.
int smtp_open(const char* server, const char* port, int connection_security, unsigned flags,
              const char* cafile, smtp_session** session);

// To look at mails beforehand: while smtp_print_instead points to one, sessions connect to nobody, smtp_mail
// appends to text what it would send between the reply to DATA and the final dot, and the close leaves its
// status. Null unless somebody sets it, which is for a process that mails nothing at the same time.
struct smtp_printed {
  std::string text;
  int status;
};
extern smtp_printed* smtp_print_instead;

// Hears each line from the server ("Server") and each write to it ("Client"), credentials included, where the
// debug flag would print it. Null unless somebody sets it.
extern void (*smtp_overhear)(const char* who, std::string_view text);

// Method 1 sends nothing, 2 is PLAIN, 3 is LOGIN with the user on the command line; any other, or a null user
// or password where one is needed, gives 9. Every failure of PLAIN or LOGIN gives 4.
int smtp_auth(smtp_session* session, int method, const char* user, const char* password);

// Adds a header. The key: at least one byte, all 33..126 but ':'. The value: bytes 32..126, TAB, 128 and
// above; a null value makes a header that exists and is never printed. Headers are printed in the byte order
// of their keys; equal keys in the order of addition. 9 on a text that breaks its rule (null key included).
int smtp_header_add(smtp_session* session, const char* key, const char* value);
// 1 when a header of exactly this key was added, else 0.
int smtp_header_exists(const smtp_session* session, const char* key);
void smtp_header_clear_all(smtp_session* session);

// Adds an address of one of the four kinds. email: no byte below 33, no 127, '<' or '>'; may be empty. name:
// no byte below 32, no 127 or '"'; null and empty mean none. 9 on anything else. The first From address is
// the mail's sender; it is required by smtp_mail only.
int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name);
void smtp_address_clear_all(smtp_session* session);

// Attach a file, the rest of an open stream (left at its end, still the caller's), or length bytes of memory
// (SMTP_TEXT_LENGTH: a text), under the name shown: no byte below 32, no 127, '\'' or '"'. The data is read
// and encoded here and now, the encoded text (1.4 times its size) is all that is held. 10 when the file
// cannot be opened or read, a folder included; 9 on a bad name (looked at after reading) or null data; 1.
int smtp_attachment_add_path(smtp_session* session, const char* name, const char* path);
int smtp_attachment_add_fp(smtp_session* session, const char* name, FILE* stream);
int smtp_attachment_add_mem(smtp_session* session, const char* name, const void* data, size_t length);
void smtp_attachment_clear_all(smtp_session* session);

// Sends the mail: envelope, headers (Date unless added, From, To, Cc; Bcc is in the envelope only), the body
// as UTF-8 HTML and the attachments as multipart/mixed; a caller who added a "Content-Type" header sends the
// body right behind the headers instead, without attachments. A dot after a newline of the body is doubled; a
// dot that begins the body is not. 9 without a From address or with a null body; 5, 6, 8, 11, 1.
int smtp_mail(smtp_session* session, const char* body);

// Says QUIT when connected (its reply is not awaited), closes and frees everything. Returns the status the
// session came with, or, when that was 0, the outcome of QUIT and close: 0, 5, 7.
int smtp_close(smtp_session* session);

int smtp_status_code_get(const smtp_session* session);
// Returns the old status and sets 0. On the out-of-memory session neither of these two changes anything.
int smtp_status_code_clear(smtp_session* session);
// Sets and returns the status; a code outside 0..11 counts as 9.
int smtp_status_code_set(smtp_session* session, int status);
// English text of a status, constant; a code outside 0..12 is 12.
const char* smtp_status_code_errstr(int status);

#endif
