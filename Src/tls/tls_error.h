// The last TLS error of a connection's record (tls_socket.h), as a verdict, a number and a text.
#ifndef TLS_TLS_ERROR_H
#define TLS_TLS_ERROR_H

#include "tls/tls_socket.h"

// Whether the last error is a time-out (SSL_ERROR_WANT_READ or SSL_ERROR_WANT_WRITE).
bool TimedOut(const LVCSR_SOCK_HEAD* tls_head);
int ErrorCode(const LVCSR_SOCK_HEAD* tls_head);
// The last error as text: OpenSSL's name of it, a colon, and a Korean sentence in code page 949. The text is
// static.
const char* ErrorMessage(const LVCSR_SOCK_HEAD* tls_head);

#endif
