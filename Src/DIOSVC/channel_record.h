// The engine's channel status. The engine link fills it and the management link reports it.
#ifndef DIOSVC_CHANNEL_RECORD_H
#define DIOSVC_CHANNEL_RECORD_H

#include <cstdint>

// One recognition channel of the engine.
struct LVCSR_CHANNEL {
  int32_t id;
  int32_t state;
};

// The counts are what the engine claimed, unchecked. pChannel holds the nEntries entries that really arrived,
// whatever the counts say. Readers must stop at min(nChannelCnt, nEntries).
struct LVCSR_DATA_CHANNEL {
  int32_t nThreadCnt;
  int32_t nChannelCnt;
  int32_t nUsedCnt;
  int32_t nWaitCnt;
  int32_t nIdleCnt;
  int32_t nEntries;
  LVCSR_CHANNEL* pChannel;  // from malloc; belongs to the caller that had the record filled
};

#endif
