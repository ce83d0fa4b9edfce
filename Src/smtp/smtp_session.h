// A session with a server: its opening, greeting, handshake and login.
#ifndef SMTP_SMTP_SESSION_H
#define SMTP_SMTP_SESSION_H

#include "smtp/smtp.h"
#include "smtp/smtp_headers.h"

// Steps of the dialogue. Each returns the status.
int smtp_connect(smtp_session* session, const char* server, const char* port);
int smtp_initiate_handshake(smtp_session* session);
int smtp_ehlo(smtp_session* session);
int smtp_auth_plain(smtp_session* session, const char* user, const char* password);
int smtp_auth_login(smtp_session* session, const char* user, const char* password);
// Sends "MAIL FROM" or "RCPT TO" for one address and reads the reply.
int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address);

#endif
