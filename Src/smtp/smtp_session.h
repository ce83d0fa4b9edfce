// A session with a server: its record, its opening, greeting, handshake and login. For the sources and the
// tests of this folder.
#ifndef SMTP_SMTP_SESSION_H
#define SMTP_SMTP_SESSION_H

#include <cstdint>
#include <string>
#include <vector>

#include "base/unique_handles.h"
#include "smtp/smtp.h"
#include "smtp/smtp_attachments.h"
#include "smtp/smtp_headers.h"
#include "smtp/smtp_line_reader.h"

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

// Steps of the dialogue. Each returns the status.
int smtp_connect(smtp_session* session, const char* server, const char* port);
int smtp_initiate_handshake(smtp_session* session);
int smtp_ehlo(smtp_session* session);
int smtp_auth_plain(smtp_session* session, const char* user, const char* password);
int smtp_auth_login(smtp_session* session, const char* user, const char* password);
// Sends "MAIL FROM" or "RCPT TO" for one address and reads the reply.
int smtp_mail_envelope_header(smtp_session* session, const char* command, const smtp_address& address);

#endif
