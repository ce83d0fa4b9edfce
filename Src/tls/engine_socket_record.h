// One connection to the engine, which the engine link opens and the TLS layer works on.
#ifndef TLS_ENGINE_SOCKET_RECORD_H
#define TLS_ENGINE_SOCKET_RECORD_H

#include <cstdint>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

// The caller zero-fills it before use. It belongs to one thread.
struct LVCSR_SOCK_HEAD {
  int32_t uSock;         // connected socket; -1 once the link has closed it
  int32_t uChannel;      // channel id of the connection, -1 after connecting
  SSL* pSSL;             // null unless a TLS handshake succeeded
  SSL_CTX* pCTX;         // client context the session is made from
  int32_t bUseSSL;       // 1: the connection is to run TLS
  int32_t bVerify;       // 1: the server's certificate is checked after the handshake
  int32_t uConnTimeout;  // seconds, at least 1
  int32_t uRecvTimeout;  // seconds, at least 1
  int32_t uLastError;    // last TLS error: a value of SSL_get_error(3), 0 for none
};

#endif
