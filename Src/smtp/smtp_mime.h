// The body and the attachments as the parts of a MIME mail.
#ifndef SMTP_SMTP_MIME_H
#define SMTP_SMTP_MIME_H

#include "smtp/smtp.h"
#include "smtp/smtp_attachments.h"

// Print what follows the headers. Each returns the status and may throw std::bad_alloc (see smtp_guarded).
int smtp_print_email(smtp_session* session, const char* body);
int smtp_print_nomime_email(smtp_session* session, const char* nomimeBody);
int smtp_print_mime_email(smtp_session* session, const char* body);
int smtp_print_mime_header_and_body(smtp_session* session, const char* boundary, const char* body);
int smtp_print_mime_attachment(smtp_session* session, const char* boundary,
                               const smtp_attachment& attachment);
int smtp_print_mime_end(smtp_session* session, const char* boundary);

// Writes a MIME boundary: "mime", ten random letters A..Z and a terminator, 15 bytes in all.
void smtp_gen_mime_boundary(char* destination);

#endif
