// TLS on a connected socket: contexts, certificates, handshake, reads and writes, over OpenSSL 1.1 or 3.
//
// Everything works on the record of one connection, which belongs to one thread. The record holds the context
// and, while a handshake holds, the session; any failed handshake, read or write frees the session at once,
// keeps context and socket, and leaves the reason in uLastError (a value of SSL_get_error(3)). The socket is
// never closed here.
//
// Handshake, Read and Write block until the peer answers, until uRecvTimeout seconds have passed since the
// call began (a figure below 1 sets no limit), or until a stop cuts them (base/stop.h). Texts are ASCII but
// for ErrorMessage. Nothing is traced.
#ifndef TLS_TLS_SOCKET_H
#define TLS_TLS_SOCKET_H

#include <cstdint>

#include "tls/engine_socket_record.h"

// Initialises the library (again is harmless) and clears socket, session, context and last error without
// releasing them. Returns the record.
LVCSR_SOCK_HEAD* SSLInit(LVCSR_SOCK_HEAD* head);
// Frees session and context, if any, without a word to the peer; socket number and last error become 0.
void SSLClose(LVCSR_SOCK_HEAD* head);
// Free one of the two and set it to null.
void SSLReset(LVCSR_SOCK_HEAD* head);
void ContextReset(LVCSR_SOCK_HEAD* head);

// A new context that agrees on the newest protocol both ends know, stored in the record (an older one is not
// released). Null on failure.
SSL_CTX* CreateServerContext(LVCSR_SOCK_HEAD* head);
SSL_CTX* CreateClientContext(LVCSR_SOCK_HEAD* head);

// Loads a certificate and its private key (PEM) and checks that they match. The pass phrase for an encrypted
// key (null counts as empty, so that nobody is ever asked at a terminal) is borrowed for as long as the
// context lives. 1, or -1 at the first step that fails.
int CertificateLoad(LVCSR_SOCK_HEAD* head, const char* certificate, const char* key, const char* pass_phrase);
// Takes the certificates of a PEM file as trusted and demands a certificate of the peer, signed by one of
// them or through at most one step between. 1, or -1 when the file cannot be loaded.
int CACheck(LVCSR_SOCK_HEAD* head, const char* ca);
// Whether the first certificate of a PEM file is valid beyond the present second: 1, else -1 with the reason
// on standard output.
int ExpiresCheck(const char* path);

// Take the connected socket into the record and run the accept or connect handshake on it. 1 or -1.
// ClientSockSetting writes protocol and cipher, whatever the outcome, to standard output.
int ServerSockSetting(LVCSR_SOCK_HEAD* head, int socket);
int ClientSockSetting(LVCSR_SOCK_HEAD* head, int socket);
// After a handshake: 1 the peer's certificate was verified, -1 it was not, -2 it sent none. Clears the last
// error.
int CertificateCheck(LVCSR_SOCK_HEAD* head);

// One SSL_read(3) or SSL_write(3): the count of bytes, above 0, or -1; a record without a session gives -1
// with SSL_ERROR_SSL. Write moves all of count.
int Read(LVCSR_SOCK_HEAD* head, char* buffer, int count);
int Write(LVCSR_SOCK_HEAD* head, const char* buffer, int count);
// Read with a limit of its own, or base::FOREVER.
int ReadWithin(LVCSR_SOCK_HEAD* head, char* buffer, int count, int64_t milliseconds);

// Whether the last error is a limit that has passed (SSL_ERROR_WANT_READ or SSL_ERROR_WANT_WRITE).
bool TimedOut(const LVCSR_SOCK_HEAD* head);
int ErrorCode(const LVCSR_SOCK_HEAD* head);
// The last error in words: OpenSSL's name for it, a colon and a Korean sentence in code page 949. Static.
const char* ErrorMessage(const LVCSR_SOCK_HEAD* head);

#endif
