// Connections to the engine, opened (with TLS if wanted) and closed. Packets are exchanged on them
// (engine_packet.h).
//
// Order of calls: zero-fill a record; for TLS SSLInit, CreateClientContext (tls/tls_socket.h) and
// DunraSTT_SSL; DunraSTT_INIT; pairs of SendData and RecvData; DunraSTT_EXIT, also after a failed
// DunraSTT_INIT. A record belongs to one thread.
//
// The record's time-outs limit connecting and the wait for a reply. Under TLS the receive time-out also
// limits the handshake, each send, and each read of the rest of a packet. Without TLS the rest of a packet
// that has begun blocks for as long as the engine takes. A stop of the agent (base/stoppable_wait.h) cuts
// every wait, which then counts as a failure. Failures are traced at error level.
#ifndef TOVIK_ENGINE_ENGINE_CONNECTION_H
#define TOVIK_ENGINE_ENGINE_CONNECTION_H

#include "tls/tls_socket.h"

// Results of both.
inline constexpr int ENGINE_OK = 0;
inline constexpr int ENGINE_FAILED = -1;
inline constexpr int ENGINE_TIMED_OUT = -2;
inline constexpr int ENGINE_REFUSED = -3;

// Connects to the engine by name or numeric address; only the first address is tried. Time-outs are in
// seconds, at least 1. Returns ENGINE_OK; ENGINE_TIMED_OUT when the kernel gave up the attempt; otherwise
// ENGINE_FAILED, also when connTimeout has passed or the handshake ran out of time. After a failed handshake
// or certificate check the socket is closed and uSock below 0; after an earlier failure it is unchanged.
int DunraSTT_INIT(const char* host, int port, int connTimeout, int recvTimeout, LVCSR_SOCK_HEAD* connection);

// Closes the record's socket unless it is -1, and frees session and context. A record that never connected
// closes descriptor 0 (see base/standard_descriptors.h). The record forgets the socket's number, so a second
// call cannot close another file that has got it meanwhile. Returns 0, or -1 when the close failed
// (nothing else is then freed), or when there is nothing to close after a failed handshake; -1 is not traced.
int DunraSTT_EXIT(LVCSR_SOCK_HEAD* connection);

#endif
