// Client side of the engine's binary request/reply protocol: connect (optionally with TLS), send a packet,
// receive a packet, close. A packet is the header below as raw bytes, then nLength bytes of payload.
//
// Order of calls: zero-fill a record; for TLS SSLInit, CreateClientContext (tls/tls_socket.h) and
// DunraSTT_SSL; DunraSTT_INIT; pairs of SendData and RecvData; DunraSTT_EXIT, also after a failed
// DunraSTT_INIT. A record belongs to one thread.
//
// The record's time-outs limit connecting and the wait for a reply. Under TLS the receive time-out also
// limits the handshake, each send, and each read of the rest of a packet. Without TLS the rest of a packet
// that has begun blocks for as long as the engine takes. A stop of the agent (base/stoppable_wait.h) cuts
// every wait, which then counts as a failure. Failures are traced at error level.
#ifndef TOVIK_ENGINE_ENGINE_SOCKET_H
#define TOVIK_ENGINE_ENGINE_SOCKET_H

#include <cstdint>

#include "tls/tls_socket.h"

// All fields are in the host's byte order.
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

// Connects to the engine by name or numeric address; only the first address is tried. Time-outs are in
// seconds, at least 1. Returns ENGINE_OK; ENGINE_TIMED_OUT when the kernel gave up the attempt; otherwise
// ENGINE_FAILED, also when connTimeout has passed or the handshake ran out of time. After a failed handshake
// or certificate check the socket is closed and uSock below 0; after an earlier failure it is unchanged.
int DunraSTT_INIT(const char* host, int port, int connTimeout, int recvTimeout, LVCSR_SOCK_HEAD* head);

// Sends a header and its nLength bytes (zeros when data is null) as one packet, without TLS with the flags of
// send(2). Returns ENGINE_OK or ENGINE_FAILED; fails at once when uSock is below 1 or the header is null.
int SendData(LVCSR_SOCK_HEAD* head, const LVCSR_NET_HEADER* header, const char* data, int flags);

// Waits until a socket is readable. Returns ENGINE_OK, ENGINE_TIMED_OUT or ENGINE_FAILED.
int Recv_Wait(int sock, int seconds);

// Receives one packet, without TLS with the flags of recv(2). Returns the payload of exactly out->nLength
// bytes (malloc; the caller frees it) and ENGINE_OK in *status. Returns null with ENGINE_OK for a packet
// without payload, with ENGINE_TIMED_OUT when no byte arrived in time, and with ENGINE_FAILED otherwise, at
// once when uSock is below 1 or out is null. The length is not trusted: memory grows with the bytes that
// arrive, to at most twice their number (and 64 KiB at first).
char* RecvData(LVCSR_SOCK_HEAD* head, LVCSR_NET_HEADER* out, int* status, int flags);

// Closes the record's socket unless it is -1, and frees session and context. A record that never connected
// closes descriptor 0 (see base/standard_descriptors.h). The record forgets the socket's number, so a second
// call cannot close another file that has got it meanwhile. Returns 0, or -1 when the close failed
// (nothing else is then freed), or when there is nothing to close after a failed handshake; -1 is not traced.
int DunraSTT_EXIT(LVCSR_SOCK_HEAD* head);

#endif
