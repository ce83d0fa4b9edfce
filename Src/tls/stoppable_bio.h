// A BIO (OpenSSL's layer below a TLS session) that reads and writes a socket and that a stop can cut.
#ifndef TLS_STOPPABLE_BIO_H
#define TLS_STOPPABLE_BIO_H

#include <openssl/ssl.h>

#include <cstdint>

namespace tls {

// Puts a session on a connected socket, which stays the caller's. Handshake, reads and writes then block as
// on a blocking socket, whatever mode the descriptor is in. Unlike with SSL_set_fd(3), a stop cuts them
// (SSL_ERROR_SYSCALL with errno ECANCELED), and a peer that is gone raises no SIGPIPE. Returns false when
// memory runs out.
bool AttachStoppableBio(SSL* session, int fd);

// Limits all further calls on the session to so many milliseconds from now, or to none with base::FOREVER,
// which is the initial state. After that time every call that needs the socket fails with SSL_ERROR_WANT_READ
// or SSL_ERROR_WANT_WRITE, even when bytes are waiting. So a call ends in time whatever the peer sends, and
// however slowly.
void LimitBioTime(SSL* session, int64_t milliseconds);

}  // namespace tls

#endif
