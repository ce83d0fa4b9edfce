// Records of the engine link that the management link and the TLS layer share.
#ifndef BASE_ENGINE_RECORDS_H
#define BASE_ENGINE_RECORDS_H

#include <cstdint>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

// One recognition channel of the engine.
struct LVCSR_CHANNEL {
  int32_t id;
  int32_t state;
};

// The engine's channel status. The counts are claims of the engine, kept as it sent them; pChannel holds
// nEntries entries, those that really arrived, whatever the counts say. Readers go up to
// min(nChannelCnt, nEntries).
struct LVCSR_DATA_CHANNEL {
  int32_t nThreadCnt;
  int32_t nChannelCnt;
  int32_t nUsedCnt;
  int32_t nWaitCnt;
  int32_t nIdleCnt;
  int32_t nEntries;
  LVCSR_CHANNEL* pChannel;  // malloc; belongs to whoever had the record filled
};

// One connection to the engine; the caller zero-fills it before use. It belongs to one thread.
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
