// The engine's channel status as the agent last received it. Each query is one short connection to the engine
// on the loopback address (engine_connection.h tells how long it may take). Despite the names, no shared
// memory is involved.
//
// The thread that runs SHM_OPEN replaces the record as a whole. Readers on other threads see the old answer,
// zeros during the query, then the new answer. The counts are what the engine claimed, unchecked; the array
// of a record has the nEntries entries that really arrived.
#ifndef TOVIK_ENGINE_CHANNEL_STATUS_H
#define TOVIK_ENGINE_CHANNEL_STATUS_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "DIOSVC/channel_record.h"
#include "tls/tls_socket.h"

// 1 once the channel check could connect to the engine; never cleared.
extern std::atomic<uint8_t> g_shm_open_flag;

// Connects to the engine (with TLS when SSL_CHECK is set), queries it and replaces the current record.
// Returns 1 when it could connect, even if the query failed (the record may then be zeros or part of an
// answer). Returns -1 when it could not; the record then stays as it is. Only one thread may call it at a
// time.
int SHM_OPEN();
// Replaces the current record by zeros without channels. Always returns 1.
int SHM_CLOS();

// Queries over an open connection. Returns ENGINE_OK; ENGINE_FAILED, also for engine status 2 or 3;
// ENGINE_TIMED_OUT when no reply came; ENGINE_REFUSED for engine status 4. As soon as a payload has arrived
// the record is replaced, whatever the result: an older array is not released, and the caller frees the new
// one.
int DunraSTT_GET_CHANNEL(LVCSR_SOCK_HEAD* channelSocket, LVCSR_DATA_CHANNEL* record);

// The current record, complete and never null. It stays valid as long as the caller keeps it.
std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus();

#endif
