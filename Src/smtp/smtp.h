// A plain SMTP client (RFC 5321, RFC 4954 AUTH). All calls work on one session record, which remembers the
// first failure.
//
// One session sends one mail: smtp_open, smtp_auth, the additions in any order, smtp_mail, smtp_close. Every
// call checks the session's status first. When it is not 0, the call does nothing and returns it. So a caller
// may make all calls unchecked and take the outcome from smtp_close. One invalid header, address or
// attachment therefore stops the whole mail.
//
// The client checks few replies: those to AUTH and DATA, and the one after the final dot. The greeting and
// the replies to EHLO, MAIL FROM and RCPT TO are read and ignored; a refused sender or recipient shows up at
// DATA or after the dot. Reply codes of 355 and above all count as "not the expected code". There is no TLS.
//
// Each read waits up to the time-out of its stage: handshake, AUTH, MAIL FROM and RCPT TO 300 s, DATA 120 s,
// final reply 600 s. Sending waits as long for a peer that takes nothing (the content 180 s). Name resolution
// and connecting take as long as the system lets them. A stop of the agent cuts each wait when its grace has
// passed (base/stoppable_wait.h); the step then fails. A line of 64 KiB or a reply of 1,000 lines counts as a
// failed read.
//
// Texts are zero-terminated, in any superset of ASCII, and copied. Each call says which bytes it accepts; no
// text can add a line to the mail. A session belongs to one thread at a time; different sessions are
// independent. No function throws. The session argument must not be null.
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
  SMTP_CONNECT_FAILED = 2,    // name not resolved, or none of its addresses accepted
  SMTP_HANDSHAKE_FAILED = 3,  // any failure after connecting, up to the reply to EHLO
  SMTP_AUTH_FAILED = 4,       // any failure of AUTH, including a refusal
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

// Flag: print every line sent or received, including credentials, on standard error.
inline constexpr unsigned SMTP_FLAG_DEBUG = 1;
// As a length: the data is zero-terminated text.
inline constexpr size_t SMTP_TEXT_LENGTH = SIZE_MAX;

// Connects to server and port (a number or a service name), reads the greeting and says EHLO.
// connection_security has no effect. cafile may be null; it is only stored. Sets SIGPIPE to ignored for the
// process. Whatever the result, *session becomes a session that smtp_close accepts; without memory it is a
// shared session stuck at status 1. Returns the status: 0, 1, 2 or 3.
int smtp_open(const char* server, const char* port, int connection_security, unsigned flags,
              const char* cafile, smtp_session** session);

// Why smtp_open ended with status 2, in words: of the name, else of the last address tried. Valid until the
// next call of strerror(3) on this thread.
const char* smtp_connect_errstr(const smtp_session* session);

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

// Method 1 sends nothing, 2 is PLAIN, 3 is LOGIN with the user in the AUTH command. Any other method, or a
// null user or password for 2 or 3, gives status 9. Every failure of PLAIN or LOGIN gives 4.
int smtp_auth(smtp_session* session, int method, const char* user, const char* password);

// Adds a header. key has at least one byte, all of them 33..126 except ':'. value may contain bytes 32..126,
// TAB, and 128 and above. A header with a null value exists but is never printed. Headers are printed in the
// byte order of their keys, equal keys in the order of addition. Status 9 for a text that breaks these rules,
// and for a null key.
int smtp_header_add(smtp_session* session, const char* key, const char* value);
// Returns 1 when a header with exactly this key was added, else 0.
int smtp_header_exists(const smtp_session* session, const char* key);
void smtp_header_clear_all(smtp_session* session);

// Adds an address of one of the four types. email may be empty; it may not contain a byte below 33, 127, '<'
// or '>'. name may not contain a byte below 32, 127 or '"'; null and empty mean no name. Status 9 for
// anything else. The first From address is the sender of the mail; only smtp_mail requires it.
int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name);
void smtp_address_clear_all(smtp_session* session);

// Attach a file, the rest of an open stream (left at its end, still the caller's), or length bytes of memory
// (SMTP_TEXT_LENGTH: a text). name is shown in the mail; it may not contain a byte below 32, 127, '\'' or
// '"'. The data is read and encoded in the call; the session holds only the encoded text (1.4 times the
// size). Status 10, with errno, when the file cannot be opened or read, or is a folder; 9 for a bad name
// (checked after reading) or null data; 1 without memory.
int smtp_attachment_add_path(smtp_session* session, const char* name, const char* path);
int smtp_attachment_add_fp(smtp_session* session, const char* name, FILE* stream);
int smtp_attachment_add_mem(smtp_session* session, const char* name, const void* data, size_t length);
void smtp_attachment_clear_all(smtp_session* session);

// Sends the mail: envelope, headers (From, To, Cc, and Date unless the caller added one), the body as UTF-8
// HTML, and the attachments, as multipart/mixed. Bcc addresses are in the envelope only. If the caller added
// a "Content-Type" header, the body follows the headers directly and attachments are not sent. A dot after a
// newline in the body is doubled; a dot that begins the body is not. Status 9 without a From address or with
// a null body; otherwise 0, 1, 5, 6, 8 or 11.
int smtp_mail(smtp_session* session, const char* body);

// Says QUIT when connected (without reading the reply), closes the connection and frees everything. Returns
// the session's status, or, when that was 0, the result of QUIT and close: 0, 5 or 7.
int smtp_close(smtp_session* session);

int smtp_status_code_get(const smtp_session* session);
// Returns the old status and sets it to 0. Neither this nor smtp_status_code_set changes the session that
// stands for a lack of memory.
int smtp_status_code_clear(smtp_session* session);
// Sets the status and returns it. A code outside 0..11 becomes 9.
int smtp_status_code_set(smtp_session* session, int status);
// The English text of a status, static. A code outside 0..12 counts as 12.
const char* smtp_status_code_errstr(int status);

#endif
