// TLS on a connected socket: contexts, certificates, handshake, reads and writes. Works with OpenSSL 1.1 and
// 3.
//
// All functions work on the record of one connection, which belongs to one thread. The record holds the
// context and, after a handshake, the session. When a handshake, a read or a write fails, the session is
// freed at once, context and socket stay, and uLastError holds the reason (a value of SSL_get_error(3)). The
// socket is never closed here.
//
// Handshake, Read and Write block until the peer answers, until uRecvTimeout seconds have passed since the
// call began (below 1: no limit), or until a stop cuts them (base/stop.h). Texts are ASCII, except those of
// ErrorMessage. Nothing is traced.
#ifndef TLS_TLS_SOCKET_H
#define TLS_TLS_SOCKET_H

#include <cstdint>

#include "tls/engine_socket_record.h"

// Initialises the library; repeated calls do no harm. Clears socket, session, context and last error without
// releasing them. Returns the record.
LVCSR_SOCK_HEAD* SSLInit(LVCSR_SOCK_HEAD* head);
// Frees session and context, if there are any, without notice to the peer. Sets socket and last error to 0.
void SSLClose(LVCSR_SOCK_HEAD* head);
// Free the session or the context and set it to null.
void SSLReset(LVCSR_SOCK_HEAD* head);
void ContextReset(LVCSR_SOCK_HEAD* head);

// Create a context and store it in the record; an older one is not released. It negotiates the newest
// protocol that both ends know. Return null on failure.
SSL_CTX* CreateServerContext(LVCSR_SOCK_HEAD* head);
SSL_CTX* CreateClientContext(LVCSR_SOCK_HEAD* head);

// Loads a certificate and its private key (PEM) and checks that they match. pass_phrase is for an encrypted
// key and must stay valid as long as the context; null counts as empty, so the terminal is never asked.
// Returns 1, or -1 at the first step that fails.
int CertificateLoad(LVCSR_SOCK_HEAD* head, const char* certificate, const char* key, const char* pass_phrase);
// Trusts the certificates of a PEM file and asks the peer for a certificate that one of them signed, directly
// or through at most one intermediate. Returns 1, or -1 when the file cannot be loaded.
int CACheck(LVCSR_SOCK_HEAD* head, const char* ca);
// Checks whether the first certificate of a PEM file expires after the present second. Returns 1 when it
// does, else -1; the reason is printed on standard output.
int ExpiresCheck(const char* path);

// Store the connected socket in the record and run the accept or connect handshake. Return 1 or -1.
// ClientSockSetting prints protocol and cipher on standard output, whatever the outcome.
int ServerSockSetting(LVCSR_SOCK_HEAD* head, int socket);
int ClientSockSetting(LVCSR_SOCK_HEAD* head, int socket);
// Tells after a handshake how the peer's certificate fared: 1 verified, -1 not verified, -2 none sent. Clears
// the last error.
int CertificateCheck(LVCSR_SOCK_HEAD* head);

// One SSL_read(3) or SSL_write(3). Return the number of bytes, above 0, or -1; without a session -1 with
// SSL_ERROR_SSL. Write sends all count bytes.
int Read(LVCSR_SOCK_HEAD* head, char* buffer, int count);
int Write(LVCSR_SOCK_HEAD* head, const char* buffer, int count);
// The same as Read with a limit of its own, or with none for base::FOREVER.
int ReadWithin(LVCSR_SOCK_HEAD* head, char* buffer, int count, int64_t milliseconds);

// Whether the last error is a time-out (SSL_ERROR_WANT_READ or SSL_ERROR_WANT_WRITE).
bool TimedOut(const LVCSR_SOCK_HEAD* head);
int ErrorCode(const LVCSR_SOCK_HEAD* head);
// The last error as text: OpenSSL's name of it, a colon, and a Korean sentence in code page 949. The text is
// static.
const char* ErrorMessage(const LVCSR_SOCK_HEAD* head);

#endif
