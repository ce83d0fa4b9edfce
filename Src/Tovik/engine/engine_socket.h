// Client side of the engine's binary request/reply protocol: connect (optionally under TLS), send a packet,
// receive a packet, close. A packet is the header below, raw, and nLength bytes of payload.
//
// The order of use: zero-fill a record; for TLS SSLInit, CreateClientContext (tls/tls_socket.h) and
// DunraSTT_SSL; DunraSTT_INIT; pairs of SendData and RecvData; DunraSTT_EXIT, also after a failed
// DunraSTT_INIT. A record belongs to one thread.
//
// Connecting and the wait for a reply are bounded by the record's time-outs. Under TLS the receive time-out
// also bounds the handshake, each sending, and each read of what follows. Without TLS the rest of a packet
// that has begun blocks for as long as the engine pleases. The stop of the agent (base/stop.h) cuts every
// wait, which then counts as a failure. Failures are traced at error level.
#ifndef TOVIK_ENGINE_ENGINE_SOCKET_H
#define TOVIK_ENGINE_ENGINE_SOCKET_H

#include <cstdint>

#include "tls/engine_socket_record.h"

// In the host's byte order.
struct LVCSR_NET_HEADER {
  int32_t nCommand;
  int32_t nStatus;  // 0 in requests
  int32_t nLength;  // bytes of payload, 0 for none
  int32_t nChannel;
};
static_assert(sizeof(LVCSR_NET_HEADER) == 16);

inline constexpr int ENGINE_OK = 0;
inline constexpr int ENGINE_FAILED = -1;
inline constexpr int ENGINE_TIMED_OUT = -2;
inline constexpr int ENGINE_REFUSED = -3;

// Prepares TLS on a record that has its client context: with a certificate file (not null nor empty) loads
// it, its key and the authority's file, whatever comes of that, and has the engine's certificate checked. The
// pass phrase is borrowed until DunraSTT_EXIT. Always 0.
int DunraSTT_SSL(const char* cert, const char* key, const char* ca, const char* pass, LVCSR_SOCK_HEAD* head);

// Connects to the engine (a name or a numeric address; only its first address is tried). Time-outs in
// seconds, at least 1. ENGINE_OK; ENGINE_TIMED_OUT when the kernel gave the attempt up; ENGINE_FAILED
// otherwise, a wait of connTimeout or a handshake that ran out of time among it. After a failed handshake or
// check uSock is -1; after an earlier failure it is as it was.
int DunraSTT_INIT(const char* host, int port, int connTimeout, int recvTimeout, LVCSR_SOCK_HEAD* head);

// Sends a header and its nLength bytes (zeros when data is null) as one packet, with the flags of send(2)
// when not under TLS. ENGINE_OK or ENGINE_FAILED, at once when uSock is below 1 or the header is null.
int SendData(LVCSR_SOCK_HEAD* head, const LVCSR_NET_HEADER* header, const char* data, int flags);

// Waits for a socket to become readable. ENGINE_OK, ENGINE_TIMED_OUT or ENGINE_FAILED.
int Recv_Wait(int sock, int seconds);

// Receives one packet, with the flags of recv(2) when not under TLS. Returns the payload of exactly
// out->nLength bytes (malloc, the caller frees), or null with ENGINE_OK in status when there is none; null
// with ENGINE_TIMED_OUT when no byte of it came in time, or ENGINE_FAILED, at once when uSock is below 1 or
// out is null. The length is the engine's word: memory is taken as bytes arrive, at most twice what has come
// (and 64 KiB at first).
char* RecvData(LVCSR_SOCK_HEAD* head, LVCSR_NET_HEADER* out, int* status, int flags);

// Closes the record's socket unless it is -1, and frees session and context. A record that never connected
// closes descriptor 0 (see base/standard_descriptors.h). The record forgets the number, so that a second call
// closes nothing that has come to bear it since. 0, or -1 when the close failed, with the rest undone.
int DunraSTT_EXIT(LVCSR_SOCK_HEAD* head);

#endif
