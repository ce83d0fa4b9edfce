// Compares the figures of a running engine and its host with their thresholds. Each threshold that is reached
// raises an alarm, again at every check for as long as it is reached.
#ifndef TOVIK_CHECKS_THRESHOLD_CHECK_H
#define TOVIK_CHECKS_THRESHOLD_CHECK_H

#include <cstdint>

// Checks channels (only once the engine could be connected), memory and CPU, in this order. name is the
// engine's short process name, in code page 949. Puts the figures of CPU and memory into gCpuUsage and
// gMemUsage (reports/report_senders.h) and posts a resource report for the management servers. Blocks for the
// mails and posts of its alarms.
void CheckThresholds(const char* name, int pid);

// The memory figure: MB divided by kB, times 100, in single precision, truncated. INT32_MIN when the result
// is not a number or does not fit.
int32_t MemoryThresholdFigure(int engine_mb, int64_t host_kb);

// The true share in percent, truncated; 0 when one of the two is not positive. MEM_OVER_PERCENT is compared
// with it. The memory figure is about 1/1024 of it and is kept for the programs that read it.
int MemoryThresholdShare(int64_t engine_kb, int64_t host_kb);

#endif
