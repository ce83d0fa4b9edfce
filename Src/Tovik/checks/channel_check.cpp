#include "Tovik/checks/channel_check.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <span>
#include <string>

#include "DIOSVC/alarm_codes.h"
#include "DIOSVC/report_types.h"
#include "Tovik/config/config.h"
#include "Tovik/engine/channel_status.h"
#include "Tovik/findings/findings.h"
#include "Tovik/notices/notices.h"
#include "Tovik/reports/report_request.h"
#include "Tovik/trace.h"
#include "base/stoppable_wait.h"

namespace {

constexpr int64_t CHANNEL_RETRY_SECONDS = 2;
constexpr int CHANNEL_FAILURES_TOLD = 30;  // in a row: an engine takes its time to come up

bool channelsAsked = false;  // set once the first query, on the main thread, has ended

void TellChannelsUnwatched(const char* unwatchedWhen) {
  if (!notices::On() || base::StopSignalPending()) return;
  notices::Tell<notices::Notice::CHANNELS_UNWATCHED>(std::to_string(m_PROC_PORT), unwatchedWhen);
}

// The channels that are both counted by the engine and present in the record.
std::span<const LVCSR_CHANNEL> CountedChannels(const LVCSR_DATA_CHANNEL& checkedChannels) {
  const int32_t checkedCount = std::clamp(checkedChannels.nChannelCnt, 0, checkedChannels.nEntries);
  return {checkedChannels.pChannel, static_cast<size_t>(checkedCount)};
}

int64_t UsedChannelPercent(const LVCSR_DATA_CHANNEL& checkedChannels) {
  constexpr float CHANNEL_PERCENT_LIMIT = 9223372036854775808.0F;  // 2^63
  // In single precision. The division by 0 channels would give infinity or not-a-number.
  if (checkedChannels.nChannelCnt == 0) return INT64_MIN;
  const float channelPercent =
      static_cast<float>(checkedChannels.nUsedCnt) / static_cast<float>(checkedChannels.nChannelCnt) * 100.0F;
  return channelPercent >= -CHANNEL_PERCENT_LIMIT && channelPercent < CHANNEL_PERCENT_LIMIT
             ? static_cast<int64_t>(channelPercent)
             : INT64_MIN;
}

}  // namespace

void ChannelCycle() {
  static int channelFailures = 0;
  const bool channelsAnswered = SHM_OPEN() == 1;
  channelFailures = channelsAnswered ? 0 : std::min(channelFailures + 1, CHANNEL_FAILURES_TOLD);
  if (!channelsAnswered) {
    if (channelFailures == CHANNEL_FAILURES_TOLD) TellChannelsUnwatched("30 times in a row");
    base::SleepSeconds(CHANNEL_RETRY_SECONDS);
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
  channelsAsked = true;
  if (!ChannelsAreWatched())
    TellChannelsUnwatched(
        "when the agent started; restart it beside a living engine, or set CHANNEL_RETRY 1");
}

bool ChannelsAreWatched() {
  return g_shm_open_flag != 0 || (m_channel_retry != 0 && channelsAsked);
}

void send_time_proc() {
  if (g_shm_open_flag != 0) send_request(REPORT_CHANNEL_STATUS, CODE_CHANNEL_STATUS);
}

int64_t get_recg_svr_wrk_ch_cnt() {
  const auto checkedChannels = CurrentChannelStatus();
  const int64_t channelPercent = UsedChannelPercent(*checkedChannels);
  TRACE(TRACE_INFO, "ch_status_check TotalCh cnt [ %ld ] MaxCh cnt [ %ld ] Percent [ %ld ]",
        long{checkedChannels->nChannelCnt}, long{checkedChannels->nUsedCnt}, long{channelPercent});
  for (const LVCSR_CHANNEL& checkedChannel : CountedChannels(*checkedChannels)) {
    TRACE(TRACE_INFO, "recog_channel_status CHID [%d], STAT[%d]", checkedChannel.id, checkedChannel.state);
  }
  return channelPercent;
}

int64_t ch_status_check() {
  const auto checkedChannels = CurrentChannelStatus();
  std::printf("ch_status_check TotalCh cnt [ %lld ] !!",
              static_cast<long long>(checkedChannels->nChannelCnt));
  for (const LVCSR_CHANNEL& checkedChannel : CountedChannels(*checkedChannels)) {
    std::printf("CHID [ %ld ], STATUS [ %ld ]", long{checkedChannel.id}, long{checkedChannel.state});
  }
  return checkedChannels->nChannelCnt;
}

void CheckChannels(const char* name) {
  if (g_shm_open_flag == 0) return;
  const int64_t channelUsage = get_recg_svr_wrk_ch_cnt();
  const auto channelFigure = static_cast<int>(channelUsage);
  const auto channelThreshold = static_cast<int>(gSendInfo->ch_over_value);
  TRACE(TRACE_INFO, "System Channel [ %d ] Config Channel [ %d ]", channelFigure, channelThreshold);
  if (channelUsage < gSendInfo->ch_over_value) return;
  TRACE(TRACE_INFO, "Channel Over");
  const std::string channelMessage = OverMessage(name, "Channel", channelFigure, channelThreshold);
  Raise({Finding::CHANNELS_OVER, name, channelMessage.c_str()});
}
