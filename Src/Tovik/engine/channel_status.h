// The engine's channel status as the agent last heard it.
#ifndef TOVIK_ENGINE_CHANNEL_STATUS_H
#define TOVIK_ENGINE_CHANNEL_STATUS_H

#include <cstdint>
#include <memory>

#include "base/engine_records.h"

int SHM_OPEN();
int SHM_CLOS();
int64_t get_recg_svr_wrk_ch_cnt();
int64_t ch_status_check();

// The latest record, whole and never null; it stays valid for as long as the caller keeps it.
std::shared_ptr<const LVCSR_DATA_CHANNEL> CurrentChannelStatus();

#endif
