// The packets of the engine's binary request/reply protocol, sent and received on an open connection
// (engine_connection.h). A packet is the header below as raw bytes, then nLength bytes of payload.
#ifndef TOVIK_ENGINE_ENGINE_PACKET_H
#define TOVIK_ENGINE_ENGINE_PACKET_H

#include <cstdint>

#include "Tovik/engine/engine_connection.h"
#include "tls/tls_socket.h"

// All fields are in the host's byte order.
struct LVCSR_NET_HEADER {
  int32_t nCommand;
  int32_t nStatus;  // 0 in requests
  int32_t nLength;  // bytes of payload, 0 for none
  int32_t nChannel;
};
static_assert(sizeof(LVCSR_NET_HEADER) == 16);

// Sends a header and its nLength bytes (zeros when packetData is null) as one packet, without TLS with the
// flags of send(2). Returns ENGINE_OK or ENGINE_FAILED; fails at once when uSock is below 1 or the header is
// null.
int SendData(LVCSR_SOCK_HEAD* packetSocket, const LVCSR_NET_HEADER* packetHeader, const char* packetData,
             int flags);

// Waits until a socket is readable. Returns ENGINE_OK, ENGINE_TIMED_OUT or ENGINE_FAILED.
int Recv_Wait(int packetSock, int seconds);

// Receives one packet, without TLS with the flags of recv(2). Returns the payload of exactly
// packetHeader->nLength bytes (malloc; the caller frees it) and ENGINE_OK in *packetStatus. Returns null with
// ENGINE_OK for a packet without payload, with ENGINE_TIMED_OUT when no byte arrived in time, and with
// ENGINE_FAILED otherwise, at once when uSock is below 1 or packetHeader is null. The length is not trusted:
// memory grows with the bytes that arrive, to at most twice their number (and 64 KiB at first).
char* RecvData(LVCSR_SOCK_HEAD* packetSocket, LVCSR_NET_HEADER* packetHeader, int* packetStatus, int flags);

#endif
