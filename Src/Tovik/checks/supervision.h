// The central check: is the engine alive (else alarm and restart), and do the host's CPU, the engine's memory
// and its used channels reach their thresholds. Runs on the process-status timer's thread alone.
#ifndef TOVIK_CHECKS_SUPERVISION_H
#define TOVIK_CHECKS_SUPERVISION_H

#include <cstdint>

// One tick for the engine of this short process name. 0 when it was found (or the search ended at a process
// without a name), 1 after a restart was tried. Blocks for the second between two snapshots, for the mails
// and posts of its alarms, and after a restart for RESTART_CHECK_SEC seconds.
int TovikProc(const char* name);

// The memory figure: MB over kB, times 100, in single precision, truncated. The lowest int32_t where that is
// no number or too large for one.
int32_t MemoryFigure(int rss_mb, int64_t total_kb);

#endif
