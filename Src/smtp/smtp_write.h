// Sending to the server, and the debug print of both directions.
#ifndef SMTP_SMTP_WRITE_H
#define SMTP_SMTP_WRITE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "smtp/smtp.h"

// The longest text of one write.
inline constexpr size_t SMTP_WRITE_LIMIT = 0x7FFFFFFF;

// Each write returns the status.
int smtp_write(smtp_session* session, const char* writeData, size_t writeLength);
int smtp_puts(smtp_session* session, const char* text);
int smtp_puts(smtp_session* session, const std::string& text);
// Sends the text and CRLF in one write.
int smtp_puts_terminate(smtp_session* session, const char* text);
// Prints on standard error when the debug flag is set, with a space for each CR and LF.
void smtp_puts_dbg(const smtp_session* session, const char* label, std::string_view text);

#endif
