// The channel-status timer: asks the engine for its channels and reports them to the management servers.
#ifndef TOVIK_CHECKS_CHANNEL_CHECK_H
#define TOVIK_CHECKS_CHANNEL_CHECK_H

// One query, its report, and the pause: RESTART_CHECK_SEC seconds, or 2 when the engine did not answer.
void ChannelCycle();

// The first query, at start-up: whether the engine could be connected is kept in g_shm_open_flag.
void AskForChannels();

// Whether the timer is to run: the engine has been connected or, with CHANNEL_RETRY, the first query is over
// whatever came of it. For the thread that makes that query.
bool ChannelsAreWatched();

// Posts a channel-status report once the engine has been connected.
void send_time_proc();

#endif
