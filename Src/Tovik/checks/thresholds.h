// The figures of a running engine and of its host against their thresholds: an alarm for each that is
// reached, again at every look for as long as it is.
#ifndef TOVIK_CHECKS_THRESHOLDS_H
#define TOVIK_CHECKS_THRESHOLDS_H

#include <cstdint>

// Channels (once the engine has been connected), memory, CPU, in this order. The figures of CPU and memory go
// to gCpuUsage and gMemUsage (reports/report_senders.h), and to the management servers as a resource report.
// Blocks for the mails and posts of its alarms.
void CheckThresholds(const char* name, int pid);

// The memory figure: MB over kB, times 100, in single precision, truncated. The lowest int32_t where that is
// no number or too large for one.
int32_t MemoryFigure(int rss_mb, int64_t total_kb);

// The true share in percent, truncated; 0 where there is none. MEM_OVER_PERCENT is compared with it: the
// memory figure is 1/1024 of it, and stays what it is for those who read it.
int MemoryShare(int64_t rss_kb, int64_t total_kb);

#endif
