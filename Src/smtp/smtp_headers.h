// The headers of a mail: their order, the addresses in them, their folding, the date.
#ifndef SMTP_SMTP_HEADERS_H
#define SMTP_SMTP_HEADERS_H

#include <cstddef>
#include <ctime>
#include <optional>
#include <string>

#include "smtp/smtp.h"

struct smtp_header {
  std::string key;
  std::optional<std::string> value;
};
struct smtp_address {
  unsigned kind;
  std::string email;
  std::string name;
};

// Each of these returns the status and may throw std::bad_alloc (see smtp_guarded).
// Adds a header with all addresses of one kind, if there are any.
int smtp_append_address_to_header(smtp_session* session, unsigned kind, const char* key);
// Adds the header "Date" unless there is one.
int smtp_add_date(smtp_session* session);
// Adds the headers of the addresses, and prints all.
int smtp_print_headers(smtp_session* session);
int smtp_print_header(smtp_session* session, const smtp_header& header);

// Folds a header line (RFC 5322 2.2.3) at its white space, so that its lines stay within width where
// possible: the last blank before width - 2 becomes CRLF and a space. Words are never split. A width below 3
// counts as 3. The result is a new zero-terminated text on the heap, which the caller frees with free(); null
// without memory.
char* smtp_fold_whitespace(const char* headerLine, size_t width);
// The length of the first of those lines: the index of the blank to replace, or the length of the whole text.
size_t smtp_fold_whitespace_get_offset(const char* headerLine, size_t width);

// Writes the present time as an RFC 5322 date of 31 characters and a terminator. Returns 0, or -1 when the
// time cannot be told. The zone is given in whole hours, without its minutes (+0530 reads +0500) and without
// summer time.
int smtp_date_rfc_2822(char* date);
// The same for a local time that is headerZone seconds ahead of UTC.
int smtp_date_format(const tm& headerTime, long headerZone, char* date);

#endif
