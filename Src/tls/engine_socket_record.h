// The record of one connection to the engine. The engine link opens the connection and the TLS layer works on
// it.
#ifndef TLS_ENGINE_SOCKET_RECORD_H
#define TLS_ENGINE_SOCKET_RECORD_H

#include <cstdint>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

// The caller zero-fills the record before use. It belongs to one thread.
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

#endif
