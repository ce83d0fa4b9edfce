// TLS on a connected socket: contexts, certificates, handshake, reads and writes. Works with OpenSSL 1.1 and
// 3.
//
// All functions work on the record of one connection, which belongs to one thread. The record holds the
// context and, after a handshake, the session. When a handshake, a read or a write fails, the session is
// freed at once, context and socket stay, and uLastError holds the reason (a value of SSL_get_error(3)). The
// socket is never closed here.
//
// Handshake, Read and Write block until the peer answers, until uRecvTimeout seconds have passed since the
// call began (below 1: no limit), or until a stop cuts them (base/stoppable_wait.h). Texts are ASCII. Nothing
// is traced.
#ifndef TLS_TLS_SOCKET_H
#define TLS_TLS_SOCKET_H

#include <cstdint>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

// The record of one connection to the engine, which the engine link opens. The caller zero-fills it before
// use.
struct LVCSR_SOCK_HEAD {
  int32_t uSock;         // connected socket; below 0 once the link has closed it
  int32_t uChannel;      // channel id of the connection, -1 after connecting
  SSL* pSSL;             // null unless a TLS handshake has succeeded
  SSL_CTX* pCTX;         // context from which sessions are made
  int32_t bUseSSL;       // 1: use TLS
  int32_t bVerify;       // 1: check the server's certificate after the handshake
  int32_t uConnTimeout;  // seconds, at least 1
  int32_t uRecvTimeout;  // seconds, at least 1
  int32_t uLastError;    // last TLS error: a value of SSL_get_error(3), 0 for none
};

// Initialises the library; repeated calls do no harm. Clears socket, session, context and last error without
// releasing them. Returns the record.
LVCSR_SOCK_HEAD* SSLInit(LVCSR_SOCK_HEAD* tls_head);
// Frees session and context, if there are any, without notice to the peer. Sets socket and last error to 0.
void SSLClose(LVCSR_SOCK_HEAD* tls_head);
// Free the session or the context and set it to null.
void SSLReset(LVCSR_SOCK_HEAD* tls_head);
void ContextReset(LVCSR_SOCK_HEAD* tls_head);

// Create a context and store it in the record; an older one is not released. It negotiates the newest
// protocol that both ends know. Return null on failure.
SSL_CTX* CreateServerContext(LVCSR_SOCK_HEAD* tls_head);
SSL_CTX* CreateClientContext(LVCSR_SOCK_HEAD* tls_head);

// Loads a certificate and its private key (PEM) and checks that they match. pass_phrase is for an encrypted
// key and must stay valid as long as the context; null counts as empty, so the terminal is never asked.
// Returns 1, or -1 at the first step that fails.
int CertificateLoad(LVCSR_SOCK_HEAD* tls_head, const char* certificate, const char* key,
                    const char* pass_phrase);
// Trusts the certificates of a PEM file and asks the peer for a certificate that one of them signed, directly
// or through at most one intermediate. Returns 1, or -1 when the file cannot be loaded.
int CACheck(LVCSR_SOCK_HEAD* tls_head, const char* ca);
// Checks whether the first certificate of a PEM file expires after the present second. Returns 1 when it
// does, else -1; the reason is printed on standard output.
int ExpiresCheck(const char* pem_path);

// Prepares TLS on a record that has its client context. With a certificate file (neither null nor empty) it
// loads that file, its key and the authority's file, ignores errors, and asks for a check of the engine's
// certificate. pass is borrowed until DunraSTT_EXIT. Always returns 0.
int DunraSTT_SSL(const char* cert, const char* key, const char* ca, const char* pass,
                 LVCSR_SOCK_HEAD* tls_head);

// Store the connected socket in the record and run the accept or connect handshake. Return 1 or -1.
// ClientSockSetting prints protocol and cipher on standard output, whatever the outcome.
int ServerSockSetting(LVCSR_SOCK_HEAD* tls_head, int socket);
int ClientSockSetting(LVCSR_SOCK_HEAD* tls_head, int socket);
// Tells after a handshake how the peer's certificate fared: 1 verified, -1 not verified, -2 none sent. Clears
// the last error.
int CertificateCheck(LVCSR_SOCK_HEAD* tls_head);

// One SSL_read(3) or SSL_write(3). Return the number of bytes, above 0, or -1; without a session -1 with
// SSL_ERROR_SSL. Write sends all count bytes.
int Read(LVCSR_SOCK_HEAD* tls_head, char* buffer, int count);
int Write(LVCSR_SOCK_HEAD* tls_head, const char* buffer, int count);
// The same as Read with a limit of its own, or with none for base::FOREVER.
int ReadWithin(LVCSR_SOCK_HEAD* tls_head, char* buffer, int count, int64_t milliseconds);

#endif
