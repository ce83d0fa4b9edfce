// A plain SMTP client (RFC 5321, RFC 4954) around one session record with a sticky status.
#ifndef SMTP_SMTP_H
#define SMTP_SMTP_H

#include <cstddef>
#include <cstdio>

struct smtp_session;

enum smtp_address_type : unsigned {
  SMTP_ADDRESS_FROM = 0,
  SMTP_ADDRESS_TO = 1,
  SMTP_ADDRESS_CC = 2,
  SMTP_ADDRESS_BCC = 3
};

int smtp_open(const char* server, const char* port, int connection_security, unsigned flags,
              const char* cafile, smtp_session** session);
int smtp_auth(smtp_session* session, int method, const char* user, const char* password);
int smtp_header_add(smtp_session* session, const char* key, const char* value);
int smtp_address_add(smtp_session* session, unsigned type, const char* email, const char* name);
int smtp_attachment_add_path(smtp_session* session, const char* name, const char* path);
int smtp_attachment_add_fp(smtp_session* session, const char* name, FILE* stream);
int smtp_attachment_add_mem(smtp_session* session, const char* name, const void* data, size_t length);
int smtp_mail(smtp_session* session, const char* body);
int smtp_close(smtp_session* session);
const char* smtp_status_code_errstr(int status);

#endif
