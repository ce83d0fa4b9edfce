#include "Tovik/checks/channel_check.h"

#include <new>

#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/reports/report_mailbox.h"
#include "base/stop.h"

namespace {

constexpr int64_t RETRY_SECONDS = 2;

bool asked = false;  // set once the first query, on the main thread, has ended

}  // namespace

void ChannelCycle() {
  if (SHM_OPEN() != 1) {
    base::SleepSeconds(RETRY_SECONDS);
    return;
  }
  g_shm_open_flag = 1;
  send_time_proc();
  base::SleepSeconds(m_restart_period);
}

void AskForChannels() {
  try {
    if (SHM_OPEN() == 1) g_shm_open_flag = 1;
  } catch (const std::bad_alloc&) {
    // Without memory for the record, the engine counts as not answering.
  }
  asked = true;
}

bool ChannelsAreWatched() {
  return g_shm_open_flag != 0 || (m_channel_retry != 0 && asked);
}

void send_time_proc() {
  if (g_shm_open_flag != 0) send_request(REPORT_CHANNEL_STATUS, CODE_CHANNEL_STATUS);
}
