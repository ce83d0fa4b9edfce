// The engine's channel status, which the engine link fills and the management link reports.
#ifndef DIOSVC_CHANNEL_RECORD_H
#define DIOSVC_CHANNEL_RECORD_H

#include <cstdint>

// One recognition channel of the engine.
struct LVCSR_CHANNEL {
  int32_t id;
  int32_t state;
};

// The engine's channel status. The counts are claims of the engine, kept as it sent them; pChannel holds
// nEntries entries, those that really arrived, whatever the counts say. Readers go up to
// min(nChannelCnt, nEntries).
struct LVCSR_DATA_CHANNEL {
  int32_t nThreadCnt;
  int32_t nChannelCnt;
  int32_t nUsedCnt;
  int32_t nWaitCnt;
  int32_t nIdleCnt;
  int32_t nEntries;
  LVCSR_CHANNEL* pChannel;  // malloc; belongs to whoever had the record filled
};

#endif
