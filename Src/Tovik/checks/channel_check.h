// The channel-status timer: asks the engine for its channels and reports them to the management servers. And
// the threshold of the channels in use.
#ifndef TOVIK_CHECKS_CHANNEL_CHECK_H
#define TOVIK_CHECKS_CHANNEL_CHECK_H

#include <cstdint>

// One query, its report, and the pause: RESTART_CHECK_SEC seconds, or 2 when the engine did not answer.
void ChannelCycle();

// Makes the first query, at start-up. Sets g_shm_open_flag when it could connect to the engine. Blocks as
// SHM_OPEN does (engine/channel_status.h).
void AskForChannels();

// Returns true when the channel timer should run: the engine could be connected or, with CHANNEL_RETRY, the
// first query has ended, successful or not. Call it on the thread that makes that query.
bool ChannelsAreWatched();

// Posts a channel-status report once the engine has been connected.
void send_time_proc();

// The percentage of channels in use, truncated. Traces every channel. INT64_MIN when the counts give no
// number that fits, so also without channels.
int64_t get_recg_svr_wrk_ch_cnt();
// Prints the channels on standard output, for debugging. Returns the channel count.
int64_t ch_status_check();

// Compares the percentage of channels in use with its threshold, once the engine could be connected, and
// raises an alarm when it is reached (threshold_check.h).
void CheckChannels(const char* name);

#endif
