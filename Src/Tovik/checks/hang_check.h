// The hang check: does the engine still accept clients? It only records, in the hang log; nothing is killed,
// restarted or reported.
#ifndef TOVIK_CHECKS_HANG_CHECK_H
#define TOVIK_CHECKS_HANG_CHECK_H

#include <cstdint>

// One check and the pause. For one thread.
void HangCycle();

// Seconds between two checks: short periods get a minute more.
int64_t HangPause(int64_t hangTime);

// One check of the process of this short name: it must run under the pid of its pid file, and, when HANG_SAVE
// is 1, a connection to its port on the loopback address must come about; that is all the proof there is, no
// request is sent. Any other HANG_SAVE counts it as dead. 1 when the process table could be read, whatever
// the verdict; 0, without a line in the hang log, when not. Blocks for a second and for the 5 seconds that a
// connection may take.
int hangCheckProc(const char* name);

#endif
