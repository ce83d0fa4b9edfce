// The engine's channel status as the agent last heard it. Every query is one short connection to the engine
// on the loopback address (see engine_socket.h for what bounds it); no shared memory is involved, whatever
// the names say.
//
// The thread that runs SHM_OPEN hands each record over as a whole: readers on other threads see the old
// answer, then zeros while the query is under way, then the new one. The counts are the engine's claims, kept
// as sent; the array of a record holds nEntries entries, those that really arrived.
#ifndef TOVIK_ENGINE_CHANNEL_STATUS_H
#define TOVIK_ENGINE_CHANNEL_STATUS_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "DIOSVC/channel_record.h"
#include "tls/engine_socket_record.h"

// 1 once the engine could be connected by those who watch its channels; never cleared.
extern std::atomic<uint8_t> g_shm_open_flag;

// Connects to the engine (with TLS when SSL_CHECK is set), queries it and replaces the current record. 1 when
// the engine could be connected, whatever came of the query (its record may be zeros or part of an answer);
// -1 when not, and the record stays as it is. One thread at a time.
int SHM_OPEN();
// Replaces the current record by zeros without channels. Always 1.
int SHM_CLOS();

// The query over an open connection. ENGINE_OK; ENGINE_FAILED, also for engine status 2 or 3;
// ENGINE_TIMED_OUT when no reply came; ENGINE_REFUSED for engine status 4. The record is replaced (an older
// array is not released, the caller frees the new one) as soon as a payload came, whatever the result.
int DunraSTT_GET_CHANNEL(LVCSR_SOCK_HEAD* head, LVCSR_DATA_CHANNEL* record);

// Percentage of the channels in use, truncated; traces every channel. INT64_MIN when the counts give no
// figure that fits, so without any channel.
int64_t get_recg_svr_wrk_ch_cnt();
// Prints the channels to standard output, for a person who debugs; returns the channel count.
int64_t ch_status_check();

// The current record, whole and never null; it stays valid for as long as the caller keeps it.
std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus();

#endif
