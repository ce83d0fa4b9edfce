// A plain TCP session with the engine. A successful connection proves that the engine still accepts clients.
// Sessions are socket numbers, -1 for none. Nothing is traced. A stop of the agent (base/stoppable_wait.h)
// cuts every wait, which then counts as a failure.
#ifndef TOVIK_ENGINE_ENGINE_TEXT_SESSION_H
#define TOVIK_ENGINE_ENGINE_TEXT_SESSION_H

#include "DIOSVC/channel_record.h"

// Connects within 5 seconds to an IPv4 address in the form of inet_addr(3). The port is taken modulo 65536.
// Returns 0 and the socket in *sock. Returns -1 without a host or when no socket can be opened, and -3 when
// connecting failed; *sock is then unchanged.
int Session_Create(const char* host, int port, long* sessionSock);
// Closes a session. Returns 0, also for -1, or -1 when the close failed. Session 0 closes descriptor 0 as
// described in base/standard_descriptors.h.
int Session_Destroy(long sessionSock);

// Waits until the session is readable. Returns 0, -2 when the seconds have passed, or -1 on an error.
int ASR_CLIENT_WAIT(long sessionSock, long seconds);

// Asks for the channel status in the engine's text framing. The first byte of the reply may take 60 seconds;
// the rest has no limit. Returns 0, or -1. A reply without channel data leaves the record unchanged.
// Otherwise nThreadCnt and nIdleCnt stay, and a channel count above 0 brings a new array, which the caller
// frees with dataFree; an older array is overwritten, not released.
int ASR_SVC_CHANNEL(long sessionSock, LVCSR_DATA_CHANNEL* record);

// free(3).
void dataFree(void* sessionData);

#endif
