// The road of a TLS session's bytes to its socket.
#ifndef TLS_STOPPABLE_BIO_H
#define TLS_STOPPABLE_BIO_H

#include <openssl/ssl.h>

#include <cstdint>

namespace tls {

// Puts a session on a connected socket, which it borrows. Handshake, reads and writes then block as on a
// blocking socket whatever the descriptor's mode, but a stop cuts them (SSL_ERROR_SYSCALL with errno
// ECANCELED), and a vanished peer raises no SIGPIPE; SSL_set_fd(3) offers neither. False when out of memory.
bool AttachSocket(SSL* session, int fd);

// Gives that session so many milliseconds from now on, or base::FOREVER, as at first. Afterwards whatever
// needs the socket fails with SSL_ERROR_WANT_READ or SSL_ERROR_WANT_WRITE, also when bytes are there: so a
// call ends in time whatever the peer sends, and however slowly.
void LimitTime(SSL* session, int64_t milliseconds);

}  // namespace tls

#endif
