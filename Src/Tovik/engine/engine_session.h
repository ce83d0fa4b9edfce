// A plain TCP session with the engine: the connection alone proves that the engine still accepts clients.
// Sessions are socket numbers, -1 for none. Nothing is traced; a stop of the agent (base/stop.h) cuts every
// wait, which then counts as a failure.
#ifndef TOVIK_ENGINE_ENGINE_SESSION_H
#define TOVIK_ENGINE_ENGINE_SESSION_H

#include "DIOSVC/channel_record.h"

// Connects within 5 seconds to an IPv4 address as inet_addr(3) reads it; the port counts modulo 65536. 0 with
// the socket in sock; -1 without a host or when no socket can be had; -3 when connecting failed. On failure
// sock is left as it was.
int Session_Create(const char* host, int port, long* sock);
// Closes a session. 0, also for -1; -1 when the close failed. Session 0 closes descriptor 0 as
// base/standard_descriptors.h has it.
int Session_Destroy(long sock);

// Waits for the session to become readable: 0, -2 when the seconds passed, -1 on an error.
int ASR_CLIENT_WAIT(long sock, long seconds);

// Asks for the channel status in the engine's text framing; the first byte of the reply may take 60 seconds,
// the rest is not bounded. 0, or -1. A reply without channel data leaves the record as it was; otherwise
// nThreadCnt and nIdleCnt stay, and a channel count above 0 brings a new array, which the caller frees with
// dataFree (an older one is overwritten, not released).
int ASR_SVC_CHANNEL(long sock, LVCSR_DATA_CHANNEL* record);

// free(3).
void dataFree(void* data);

#endif
